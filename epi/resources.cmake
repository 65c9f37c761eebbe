# The resources: media (folder, pack file, pack linked into the executable) and the kinds.
list(APPEND EPI_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/epiResources.cpp)
