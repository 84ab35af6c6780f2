export const home = getEnv("HOME") + Config.mode; //> env.getEnv env.Config env.Config.mode
