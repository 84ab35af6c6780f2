declare module "./base" {
  interface Options {
    verbose?: boolean;
  }
}
export {};
