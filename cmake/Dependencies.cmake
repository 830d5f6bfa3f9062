# Everything comes from the distribution. live555 is the one that Debian 12
# lacks: a private copy of the newer distribution's packages is made then.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(live555 QUIET IMPORTED_TARGET live555)
if(NOT live555_FOUND)
  set(live555_prefix ${CMAKE_SOURCE_DIR}/build/deps/live555)
  execute_process(COMMAND ${CMAKE_SOURCE_DIR}/scripts/live555/get-live555.sh ${live555_prefix}
                  RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "live555 is not installed and could not be fetched")
  endif()
  list(PREPEND CMAKE_PREFIX_PATH ${live555_prefix})
  pkg_check_modules(live555 REQUIRED IMPORTED_TARGET live555)
endif()

pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)
pkg_check_modules(log4cpp REQUIRED IMPORTED_TARGET log4cpp)
pkg_check_modules(avformat REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(jsoncpp REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(zlib REQUIRED IMPORTED_TARGET zlib)
find_package(CLI11 REQUIRED)
