# The bitmap widgets from layout text: images decoded by the GTK services, painted through a
# neutral window's surface. No display is needed.
if(TARGET epiuigtk)
    kv3_add_test(epi_ui_bitmap_widgets_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapWidgetsTest.cpp LIBS epiuigtk)
    if(TARGET epi_ui_bitmap_widgets_test)
        set_tests_properties(epi_ui_bitmap_widgets_test PROPERTIES
            ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/bitmaps_lsan.supp")
    endif()
endif()

# The same widgets in a real window under Xvfb: what reaches the screen, and how much of it is copied.
if(TARGET epiuigtk AND EXISTS ${CMAKE_CURRENT_LIST_DIR}/gtk/XvfbSupport.h)
    kv3_add_test(epi_ui_bitmap_widgets_screen_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapWidgetsScreenTest.cpp
                 LIBS epiuigtk LABELS display TIMEOUT 60)
    if(TARGET epi_ui_bitmap_widgets_screen_test)
        set_tests_properties(epi_ui_bitmap_widgets_screen_test PROPERTIES ENVIRONMENT
            "GDK_BACKEND=x11;GSETTINGS_BACKEND=memory;NO_AT_BRIDGE=1;G_DEBUG=fatal-criticals;LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/bitmaps_lsan.supp")
    endif()
endif()
