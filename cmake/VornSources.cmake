# The library's sources: every .cpp in the layer folders. New files are picked up at the next
# configure (CONFIGURE_DEPENDS re-globs on every build).
set(VORN_LAYERS document expressions geometry generators primitives fxmodules renderers
    renderers/renderapi vrsculptcore io)
set(VORN_SOURCES)
foreach(layer ${VORN_LAYERS})
  file(GLOB layer_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${layer}/*.cpp)
  list(APPEND VORN_SOURCES ${layer_sources})
endforeach()
