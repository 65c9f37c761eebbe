# Bitmap and font tests: the neutral pixel rules need no platform; decoding, cairo and pango need
# the GTK platform library but no display.
kv3_add_test(epi_ui_bitmap_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapTest.cpp LIBS epiui)
if(TARGET epiuigtk)
    kv3_add_test(epi_ui_bitmap_gtk_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/BitmapGtkTest.cpp LIBS epiuigtk)
endif()
