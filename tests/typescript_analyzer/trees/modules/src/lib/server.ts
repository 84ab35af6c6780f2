import { Base, type Options } from "./base.js"; //> src.lib.base.Base src.lib.base.Options

export class Server extends Base { //> src.lib.base.Base
  constructor(private options: Options) { //> src.lib.base.Options
    super();
  }
  connect(): void {
    this.start(this.options.port); //> src.lib.base.Base.start src.lib.server.Server.options src.lib.base.Options.port
    super.listen(1); //> src.lib.base.Base.listen
  }
}
