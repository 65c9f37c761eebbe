# Objects, texts, paths, geometry and files.
kv3_add_test(epi_text_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/TextTest.cpp LIBS epi testsupport)
kv3_add_test(epi_object_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ObjectTest.cpp LIBS epi testsupport)
kv3_add_test(epi_path_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/PathTest.cpp LIBS epi testsupport)
kv3_add_test(epi_file_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/FileTest.cpp LIBS epi testsupport)
