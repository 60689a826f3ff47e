# The layers, bottom up. A library of one layer includes only its own headers
# and those of the layers below it; marrow_layer() checks that at every build
# of its sources and headers, so an upward include fails the build.
set(MARROW_LAYERS text store content mail saving session engine cli app)

function(marrow_layer target layer)
  list(FIND MARROW_LAYERS ${layer} index)
  list(SUBLIST MARROW_LAYERS 0 ${index} below)
  set(allowed ${below} ${layer})
  if(layer STREQUAL "engine" OR layer STREQUAL "cli" OR layer STREQUAL "app")
    # Front ends stand side by side: each sees the core, not each other.
    list(REMOVE_ITEM allowed engine cli app)
    list(APPEND allowed ${layer})
  endif()
  file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  get_target_property(sources ${target} SOURCES)
  set(files ${headers})
  foreach(s IN LISTS sources)
    if(NOT IS_ABSOLUTE "${s}")
      set(s ${CMAKE_CURRENT_SOURCE_DIR}/${s})
    endif()
    if(s MATCHES "^${CMAKE_SOURCE_DIR}/${layer}/")
      list(APPEND files ${s})
    endif()
  endforeach()
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${target}.layer-check)
  add_custom_command(
    OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -DLAYER=${layer} "-DALLOWED=${allowed}" "-DFILES=${files}" -DSTAMP=${stamp}
            -P ${CMAKE_SOURCE_DIR}/cmake/LayerCheck.cmake
    DEPENDS ${files} ${CMAKE_SOURCE_DIR}/cmake/LayerCheck.cmake
    COMMENT "Checking the includes of ${layer}/"
    VERBATIM)
  add_custom_target(${target}_layer_check DEPENDS ${stamp})
  add_dependencies(${target} ${target}_layer_check)
endfunction()
