# Bitmaps and fonts: the pixel store, the table of loaded bitmaps, the bitmap and system fonts, a
# drawing surface over a bitmap, and the interface's resources that own the table and the fonts.
# Decoding and anti-aliased drawing come from the platform layer.
list(APPEND EPIUI_BITMAP_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/epiBitmap.cpp
    ${CMAKE_CURRENT_LIST_DIR}/epiFont.cpp
    ${CMAKE_CURRENT_LIST_DIR}/epiBitmapSurface.cpp
    ${CMAKE_CURRENT_LIST_DIR}/epiUiResources.cpp
)
