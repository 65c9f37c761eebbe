# XML chunks, and atoms files with the resource pack read from them.
kv3_add_test(epi_xml_chunk_test SOURCES XmlChunkTest.cpp LIBS epi testsupport)
kv3_add_test(epi_atoms_file_test SOURCES AtomsFileTest.cpp LIBS epi testsupport)

# `kv3 pack` end to end: build from a folder, walk the layout, read back through `kv3 pack cat`.
if(TARGET kv3 AND NOT KV3_SANITIZE STREQUAL "thread")
    add_executable(epi_pack_readback PackReadback.cpp)
    target_link_libraries(epi_pack_readback PRIVATE epi)
    # The test runs kv3 as well: building the test programs (all_tests) builds it too.
    add_dependencies(epi_pack_readback kv3)
    set_property(GLOBAL APPEND PROPERTY KV3_TESTS epi_pack_readback)
    add_test(NAME epi_pack_cli
             COMMAND ${CMAKE_COMMAND} -DKV3=$<TARGET_FILE:kv3> -DREADBACK=$<TARGET_FILE:epi_pack_readback>
                     -DTREE=${CMAKE_CURRENT_SOURCE_DIR}/pack_tree -DWORK=${CMAKE_CURRENT_BINARY_DIR}/pack_cli
                     -P ${CMAKE_CURRENT_SOURCE_DIR}/pack_cli.cmake)
    set_tests_properties(epi_pack_cli PROPERTIES TIMEOUT 120)
endif()
