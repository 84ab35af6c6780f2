import { ok } from "./broken";
export const used = ok;
