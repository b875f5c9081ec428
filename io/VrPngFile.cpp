#include "io/VrPngFile.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <fstream>
#include <memory>

namespace {

void writeToStream(png_structp png, png_bytep data, png_size_t length) {
  auto* out = static_cast<std::ostream*>(png_get_io_ptr(png));
  out->write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(length));
}

void flushStream(png_structp png) { static_cast<std::ostream*>(png_get_io_ptr(png))->flush(); }

void readFromStream(png_structp png, png_bytep data, png_size_t length) {
  auto* in = static_cast<std::istream*>(png_get_io_ptr(png));
  in->read(reinterpret_cast<char*>(data), static_cast<std::streamsize>(length));
  if (static_cast<png_size_t>(in->gcount()) != length) png_error(png, "the file ends early");
}

// libpng's own messages go through the message system; its errors end in a longjmp.
void pngError(png_structp png, png_const_charp text) {
  VR_ERROR(std::string("PNG: ") + text);
  png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

}  // namespace

bool VrWritePng(const std::string& path, const VrRgbImage& image) {
  if (image.width == 0 || image.height == 0 || image.pixels.size() != size_t(image.width) * image.height * 3) {
    VR_ERROR("Cannot write " + path + ": the picture is empty or its pixels do not match its size.");
    return false;
  }
  VrAtomicFile file(path);
  if (!file.ok()) {
    VR_ERROR("Cannot write " + path + ": the file cannot be opened.");
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, pngError, pngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    VR_ERROR("Cannot write " + path + ": out of memory.");
    return false;
  }
  std::vector<png_bytep> rows(image.height);
  for (unsigned y = 0; y < image.height; ++y)
    rows[y] = const_cast<png_bytep>(image.pixels.data() + size_t(y) * image.width * 3);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, &file.out(), writeToStream, flushStream);
  png_set_IHDR(png, info, image.width, image.height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (!file.commit()) {
    VR_ERROR("Cannot write " + path + ": the file could not be completed.");
    return false;
  }
  return true;
}

bool VrReadPng(const std::string& path, VrRgbImage& image) {
  std::ifstream in(path, std::ios::binary);
  png_byte signature[8] = {};
  if (!in.read(reinterpret_cast<char*>(signature), 8) || png_sig_cmp(signature, 0, 8) != 0) {
    VR_ERROR("Cannot read " + path + ": not a PNG file.");
    return false;
  }
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, pngError, pngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return false;
  }
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_set_read_fn(png, &in, readFromStream);
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  png_set_strip_16(png);
  png_set_strip_alpha(png);
  png_set_palette_to_rgb(png);
  png_set_gray_to_rgb(png);
  png_set_expand_gray_1_2_4_to_8(png);
  png_read_update_info(png, info);
  image.width = png_get_image_width(png, info);
  image.height = png_get_image_height(png, info);
  image.pixels.assign(size_t(image.width) * image.height * 3, 0);
  rows.resize(image.height);
  for (unsigned y = 0; y < image.height; ++y) rows[y] = image.pixels.data() + size_t(y) * image.width * 3;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}
