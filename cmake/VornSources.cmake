# The library's sources: every .cpp in the layer folders. New files are picked up at the next
# configure (CONFIGURE_DEPENDS re-globs on every build).
set(VORN_LAYERS base document expressions geometry generators primitives fxmodules renderers
    renderers/renderapi vrsculptcore io io/alembic io/output io/particles io/ptex io/vpd)
set(VORN_SOURCES)
foreach(layer ${VORN_LAYERS})
  file(GLOB layer_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${layer}/*.cpp)
  list(APPEND VORN_SOURCES ${layer_sources})
endforeach()

# The blue-noise sample table, embedded in the library as read-only data.
set(VORN_SAMPLE_TABLE_FILE ${CMAKE_CURRENT_SOURCE_DIR}/geometry/data/sampleTable.bin)
list(APPEND VORN_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/geometry/vrutilSamples.S)
set_source_files_properties(${CMAKE_CURRENT_SOURCE_DIR}/geometry/vrutilSamples.S PROPERTIES
  OBJECT_DEPENDS ${VORN_SAMPLE_TABLE_FILE}
  COMPILE_DEFINITIONS "VORN_SAMPLE_TABLE_FILE=\"${VORN_SAMPLE_TABLE_FILE}\"")
