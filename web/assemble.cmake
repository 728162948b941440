# web/assemble.cmake - writes the one HTML file of the page: page.html with the stylesheet, the
# worker's script (the module's JavaScript with its WebAssembly inside, then worker.js) and the
# page's script in place of its markers. Run as `cmake -P` by web/CMakeLists.txt with NAVO_WEB_DIR,
# NAVO_WEB_MODULE, NAVO_WEB_VERSION and NAVO_WEB_PAGE.

file(READ ${NAVO_WEB_DIR}/page.html page)
file(READ ${NAVO_WEB_DIR}/page.css css)
file(READ ${NAVO_WEB_MODULE} module)
file(READ ${NAVO_WEB_DIR}/worker.js worker)
file(READ ${NAVO_WEB_DIR}/page.js script)

# A script inside the page ends at the first "</script" and is parsed differently after "<!--":
# neither may stand in what goes inside one.
foreach(piece module worker script)
  string(TOLOWER "${${piece}}" lower)
  string(FIND "${lower}" "</script" closing)
  string(FIND "${lower}" "<!--" comment)
  if(NOT closing EQUAL -1 OR NOT comment EQUAL -1)
    message(FATAL_ERROR "web/assemble.cmake: the ${piece} script holds </script or <!-- and cannot be put inside the page")
  endif()
endforeach()

# Each marker is replaced once, and what replaces it is never searched again.
foreach(marker NAVO_CSS NAVO_WORKER NAVO_PAGE NAVO_VERSION)
  string(FIND "${page}" "@${marker}@" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "web/assemble.cmake: page.html lacks the marker @${marker}@")
  endif()
endforeach()
string(FIND "${page}" "@NAVO_CSS@" at)
string(SUBSTRING "${page}" 0 ${at} before)
math(EXPR at "${at} + 10")
string(SUBSTRING "${page}" ${at} -1 after)
string(REPLACE "@NAVO_VERSION@" "${NAVO_WEB_VERSION}" after "${after}")
string(FIND "${after}" "@NAVO_WORKER@" at)
string(SUBSTRING "${after}" 0 ${at} middle)
math(EXPR at "${at} + 13")
string(SUBSTRING "${after}" ${at} -1 after)
string(FIND "${after}" "@NAVO_PAGE@" at)
string(SUBSTRING "${after}" 0 ${at} tail)
math(EXPR at "${at} + 11")
string(SUBSTRING "${after}" ${at} -1 end)

get_filename_component(directory ${NAVO_WEB_PAGE} DIRECTORY)
file(MAKE_DIRECTORY ${directory})
file(WRITE ${NAVO_WEB_PAGE}.new "${before}${css}${middle}${module}\n${worker}${tail}${script}${end}")
file(RENAME ${NAVO_WEB_PAGE}.new ${NAVO_WEB_PAGE})
