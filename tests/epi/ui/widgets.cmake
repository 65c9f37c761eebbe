# The bitmap widgets from layout text: images decoded by the GTK services, painted through a
# neutral window's surface. No display is needed.
if(TARGET epiuigtk)
    kv3_add_test(epi_ui_bitmap_widgets_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapWidgetsTest.cpp LIBS epiuigtk)
    if(TARGET epi_ui_bitmap_widgets_test)
        set_tests_properties(epi_ui_bitmap_widgets_test PROPERTIES
            ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/bitmaps_lsan.supp")
    endif()
endif()

