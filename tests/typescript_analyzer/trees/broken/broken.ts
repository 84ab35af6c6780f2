export function ok(: number {
