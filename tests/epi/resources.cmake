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

# `kv3 resources find` and `kv3 menu show` end to end.
if(TARGET kv3 AND TARGET epiui AND NOT KV3_SANITIZE STREQUAL "thread")
    add_test(NAME epi_resources_cli
             COMMAND ${CMAKE_COMMAND} -DKV3=$<TARGET_FILE:kv3> -DTREE=${CMAKE_CURRENT_SOURCE_DIR}/resources_tree
                     -DPACK=${epi_test_pack_FILE} -P ${CMAKE_CURRENT_SOURCE_DIR}/resources_cli.cmake)
    set_tests_properties(epi_resources_cli PROPERTIES TIMEOUT 60)
endif()
