# Objects, texts, paths, geometry and files.
list(APPEND EPI_SOURCES
    ${CMAKE_CURRENT_SOURCE_DIR}/epiObject.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiText.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiPath.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiRect.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiFile.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiFileDump.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiFileDumpAtoms.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiFolder.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/epiTextFile.cpp
)
