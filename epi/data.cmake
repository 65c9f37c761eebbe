# XML chunks, atoms files and the resource pack.
list(APPEND EPI_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/epiXmlChunk.cpp)
list(APPEND EPI_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/epiAtomsFile.cpp)
list(APPEND EPI_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/epiResourcePack.cpp)
