# Bitmaps and text on GTK: gdk-pixbuf decoding, cairo shapes and scaled copies, pango system fonts.
list(APPEND EPIUIGTK_BITMAP_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/epiBitmapGtk.cpp
)
