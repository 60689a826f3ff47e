cmake_minimum_required(VERSION 3.25)
# Fails when a source of layer LAYER includes a header of a layer it may not
# see. Run at build time over FILES; ALLOWED lists the layers LAYER may include
# (itself among them). Writes STAMP when every file passes.
set(layers text store content mail saving session engine cli app)
set(bad "")
foreach(file IN LISTS FILES)
  file(STRINGS "${file}" lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"[a-z_]+/")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([a-z_]+)/.*" "\\1" dir "${line}")
    if(dir IN_LIST layers AND NOT dir IN_LIST ALLOWED)
      string(APPEND bad "\n  ${file}: ${line}")
    endif()
  endforeach()
endforeach()
if(bad)
  message(FATAL_ERROR "${LAYER}/ may include only ${ALLOWED}; these include a layer above it:${bad}")
endif()
file(WRITE "${STAMP}" "")
