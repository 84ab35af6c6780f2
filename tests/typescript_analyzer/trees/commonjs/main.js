const { format, Logger: Log } = require("./lib/util"); //> lib.util.format lib.util.Logger
const util = require("./lib/util.js");
const path = require("path");

format(1); //> lib.util.format
new Log().log("x"); //> lib.util.Logger lib.util.Logger.log
util.format(util.VERSION); //> lib.util.format lib.util.VERSION
path.join("a");
function local(format) {
  return format;
}
