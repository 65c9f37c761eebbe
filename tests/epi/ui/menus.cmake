# Menus and keyboard.
kv3_add_test(epiui_menu_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/MenuTest.cpp LIBS epiui epi)
