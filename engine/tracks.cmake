# Tracks and recording: the track's chain of nodes, its takes and the recorder. Included by the
# engine's CMakeLists.txt, which adds these to the engine library.
list(APPEND ENGINE_TRACK_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/AudioFileRecorder.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Track.cpp
)
