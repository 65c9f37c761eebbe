# The resources: the three media over one tree, the search order, and the pack linked into the
# test program, built from resources_tree/ plus one generated file by the same function as the
# program's own pack.
include(${CMAKE_SOURCE_DIR}/resources/EmbeddedPack.cmake)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/generated.txt "made by the build\n")
epi_resource_pack(NAME epi_test_pack FOLDER ${CMAKE_CURRENT_SOURCE_DIR}/resources_tree
    GENERATED ${CMAKE_CURRENT_BINARY_DIR}/generated.txt aux/generated.txt)
kv3_add_test(epi_resources_test SOURCES ResourcesTest.cpp LIBS epi)
if(TARGET epi_resources_test)
    epi_link_resources(epi_resources_test epi_test_pack)
    target_compile_definitions(epi_resources_test PRIVATE
        EPI_TEST_PACK="${epi_test_pack_FILE}" EPI_TEST_TREE="${CMAKE_CURRENT_SOURCE_DIR}/resources_tree")
endif()
