const { format, Logger: Log } = require("./lib/util"); //> lib.util.format lib.util.Logger
const util = require("./lib/util.js");
const path = require("path");

format(1); //> lib.util.format
new Log().log("x"); //> lib.util.Logger lib.util.Logger.constructor lib.util.Logger.log
util.format(util.VERSION); //> lib.util.format lib.util.VERSION
path.join("a");
function local(format) {
  return format;
}
let logger = null;
logger = new Log(); //> main.logger lib.util.Logger lib.util.Logger.constructor
logger.log("y"); //> main.logger lib.util.Logger.log
function later() {
  logger.log("z"); //> main.logger
}
function maybe(flag) {
  let found;
  if (flag) found = new Log(); //> lib.util.Logger lib.util.Logger.constructor
  return found.log("w");
}
