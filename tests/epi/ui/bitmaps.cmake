# Bitmap and font tests: the neutral pixel rules need no platform; decoding, cairo and pango need
# the GTK platform library but no display.
kv3_add_test(epi_ui_bitmap_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapTest.cpp LIBS epiui)
if(TARGET epiuigtk AND TARGET packbuilder)
    kv3_add_test(epi_ui_bitmap_gtk_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapGtkTest.cpp LIBS epiuigtk packbuilder)
    if(TARGET epi_ui_bitmap_gtk_test)
        set_tests_properties(epi_ui_bitmap_gtk_test PROPERTIES
            ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/bitmaps_lsan.supp")
    endif()
endif()
