# Menus and keyboard: the menu bar as a model with the road of its commands, and the key table.
list(APPEND EPIUI_MENU_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/epiMenu.cpp
    ${CMAKE_CURRENT_LIST_DIR}/epiKeyboard.cpp
)
