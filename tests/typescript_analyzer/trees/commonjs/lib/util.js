function format(value) {
  return String(value);
}
class Logger {
  log(message) {
    return format(message); //> lib.util.format
  }
}
module.exports = { format, Logger }; //> lib.util.format lib.util.Logger
exports.VERSION = "1.0";
