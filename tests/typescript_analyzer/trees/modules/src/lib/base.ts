/**
 * A server.
 *
 *   Indented example.
 */
export class Base {
  /** Starts it. */
  start(port: number): void {
    this.listen(port); //> src.lib.base.Base.listen
  }
  listen(port: number): void {}
  private secret = 1;
}

export function helper(x: number): number;
export function helper(x: string): string;
export function helper(x: any): any {
  return x;
}

export default function main(): Base { //> src.lib.base.Base
  return new Base(); //> src.lib.base.Base
}

export interface Options {
  port: number;
  host?: string;
}
export const Options = { port: 80 };
