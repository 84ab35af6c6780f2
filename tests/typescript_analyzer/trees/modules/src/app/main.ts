import run, { h, Server } from "../lib"; //> src.lib.base.main src.lib.base.helper src.lib.server.Server
import * as lib from "../lib/index.js";
import type { Options } from "../lib/base"; //> src.lib.base.Options

export function serve(options: Options): Server { //> src.lib.base.Options src.lib.server.Server
  const server = new Server(options); //> src.lib.server.Server src.lib.server.Server.constructor
  server.connect(); //> src.lib.server.Server.connect
  server.start(options.port); //> src.lib.base.Base.start src.lib.base.Options.port
  h(1); //> src.lib.base.helper
  lib.h("x"); //> src.lib.base.helper
  lib.base.helper(2); //> src.lib.base.helper
  return server;
}

const settings: Options = { //> src.lib.base.Options
  port: 1, //> src.lib.base.Options.port
  host: "a", //> src.lib.base.Options.host
  verbose: true, //> src.lib.base.Options.verbose
};
lib.Server; //> src.lib.server.Server
run(); //> src.lib.base.main
serve(settings); //> src.app.main.serve src.app.main.settings
