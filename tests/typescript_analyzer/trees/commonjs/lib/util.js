function format(value) {
  return String(value);
}
class Logger {
  constructor() {
    this.out = new Logger(); //> lib.util.Logger lib.util.Logger.constructor
  }
  log(message) {
    this.out = null; // declares out again, as JavaScript reads it: no use
    this.out.log(message); //> lib.util.Logger.out lib.util.Logger.log
    return format(message); //> lib.util.format
  }
}
module.exports = { format, Logger }; //> lib.util.format lib.util.Logger
exports.VERSION = "1.0";
