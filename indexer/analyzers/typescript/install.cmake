# Installs the JavaScript/TypeScript analyzer into DIR: its modules, and the
# TypeScript compiler from the lock file with `npm ci` (no package scripts
# run), once per lock file. When npm cannot install it (offline, no
# registry), the analyzer is left without it and the indexer reads these
# languages with ctags.
#   cmake -DSOURCE=<this folder> -DDIR=<build folder> -DNPM=<npm> -P install.cmake
file(GLOB modules ${SOURCE}/*.mjs)
file(COPY ${modules} ${SOURCE}/package.json ${SOURCE}/package-lock.json DESTINATION ${DIR})
set(stamp ${DIR}/node_modules/.installed-lock.json)
file(READ ${SOURCE}/package-lock.json lock)
set(installed "")
if(EXISTS ${stamp})
  file(READ ${stamp} installed)
endif()
if(NOT lock STREQUAL installed)
  execute_process(COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --loglevel=error
                  WORKING_DIRECTORY ${DIR} RESULT_VARIABLE failed TIMEOUT 900)
  if(failed)
    message(WARNING "npm ci failed (${failed}): JavaScript and TypeScript files will be read by ctags")
  else()
    file(COPY_FILE ${SOURCE}/package-lock.json ${stamp})
  endif()
endif()
