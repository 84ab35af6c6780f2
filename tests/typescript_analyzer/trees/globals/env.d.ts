declare function getEnv(name: string): string;
declare namespace Config {
  const mode: string;
}
