# The metronome, the choice of its clicks and the offline jobs (export and freeze). Included by the
# engine's CMakeLists.txt, which adds these to the engine library.
list(APPEND ENGINE_TRACK_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/ClickChoice.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ExporterJobs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Metronome.cpp
)
