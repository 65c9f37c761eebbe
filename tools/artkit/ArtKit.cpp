#include "tools/artkit/ArtKit.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

#include <png.h>

namespace artkit
{

namespace
{

struct FileCloser
{
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

void pngErrorThunk(png_structp png, png_const_charp message)
{
    auto* error = static_cast<std::string*>(png_get_error_ptr(png));
    *error = message;
    png_longjmp(png, 1);
}

void pngWarningThunk(png_structp, png_const_charp) {}

} // namespace

bool writePng(const std::string& path, const Rgba& image, std::string& error)
{
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file)
    {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, pngErrorThunk, pngWarningThunk);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info)
    {
        png_destroy_write_struct(&png, nullptr);
        error = path + ": out of memory";
        return false;
    }
    std::vector<png_const_bytep> rows(static_cast<std::size_t>(image.height));
    for (int y = 0; y < image.height; ++y)
        rows[static_cast<std::size_t>(y)] = image.at(0, y);
    if (setjmp(png_jmpbuf(png)))
    {
        png_destroy_write_struct(&png, &info);
        error = path + ": " + error;
        return false;
    }
    png_init_io(png, file.get());
    png_set_compression_level(png, 9);
    png_set_filter(png, 0, PNG_ALL_FILTERS);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
                 PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_write_image(png, const_cast<png_bytepp>(rows.data()));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fflush(file.get()) != 0)
    {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool readPng(const std::string& path, Rgba& image, std::string& error)
{
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file)
    {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, pngErrorThunk, pngWarningThunk);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info)
    {
        png_destroy_read_struct(&png, nullptr, nullptr);
        error = path + ": out of memory";
        return false;
    }
    if (setjmp(png_jmpbuf(png)))
    {
        png_destroy_read_struct(&png, &info, nullptr);
        error = path + ": " + error;
        return false;
    }
    png_init_io(png, file.get());
    png_read_info(png, info);
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_read_update_info(png, info);
    image = Rgba(static_cast<int>(png_get_image_width(png, info)),
                 static_cast<int>(png_get_image_height(png, info)));
    std::vector<png_bytep> rows(static_cast<std::size_t>(image.height));
    for (int y = 0; y < image.height; ++y)
        rows[static_cast<std::size_t>(y)] = image.at(0, y);
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

std::string defaultFontDir()
{
    return KV3_DEJAVU_DIR;
}

FontLibrary::FontLibrary()
{
    if (FT_Init_FreeType(&library_) != 0)
        library_ = nullptr;
}

FontLibrary::~FontLibrary()
{
    for (FT_Face face : faces_)
        FT_Done_Face(face);
    if (library_)
        FT_Done_FreeType(library_);
}

FT_Face FontLibrary::open(const std::string& dir, const std::string& file, int pixels, std::string& error)
{
    const std::string path = dir + "/" + file;
    FT_Face face = nullptr;
    if (!library_ || FT_New_Face(library_, path.c_str(), 0, &face) != 0)
    {
        error = path + ": can't be opened as a font";
        return nullptr;
    }
    faces_.push_back(face);
    if (FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(pixels)) != 0)
    {
        error = path + ": can't be set to " + std::to_string(pixels) + " px";
        return nullptr;
    }
    return face;
}

bool makeFolders(const std::string& path, std::string& error)
{
    for (std::size_t i = 1; i <= path.size(); ++i)
    {
        if (i < path.size() && path[i] != '/')
            continue;
        const std::string part = path.substr(0, i);
        if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
        {
            error = part + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

} // namespace artkit
