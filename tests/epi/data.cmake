# XML chunks, atoms files and the resource pack.
kv3_add_test(epi_xml_chunk_test SOURCES XmlChunkTest.cpp LIBS epi)
kv3_add_test(epi_atoms_file_test SOURCES AtomsFileTest.cpp LIBS epi)
kv3_add_test(epi_resource_pack_test SOURCES ResourcePackTest.cpp LIBS epi)
