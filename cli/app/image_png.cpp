// libpng reports errors by jumping: each call to it sits in a function of its own without anything to destroy.
#include "app/image_png.hpp"

#include <cerrno>
#include <csetjmp>
#include <cstring>

#include "app/report.hpp"

namespace kscli {
namespace {

bool startPng(png_structp png, png_infop info, std::FILE* stream, png_uint_32 width, png_uint_32 height, int colour) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_init_io(png, stream);
    // The default limit of a million pixels a side is a guard for readers, not for what we make.
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(png, info, width, height, 8, colour, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    return true;
}

bool putRow(png_structp png, const std::uint8_t* row) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_write_row(png, row);
    return true;
}

bool endPng(png_structp png) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_write_end(png, nullptr);
    return true;
}

void onPngError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void onPngWarning(png_structp, png_const_charp) {}

[[noreturn]] void failToWrite(const std::string& name) {
    fail("{} cannot be written: {}.", name, std::strerror(errno));
}

}  // namespace

PngWriter::PngWriter(const std::string& name, int width, int height, int components) : name_(name) {
    stream_ = std::fopen(name.c_str(), "wb");
    if (stream_ == nullptr) failToWrite(name);
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onPngError, onPngWarning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
    const int colour = components == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
    if (info_ == nullptr ||
        !startPng(png_, info_, stream_, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), colour)) {
        png_destroy_write_struct(&png_, &info_);
        std::fclose(stream_);
        failToWrite(name);
    }
}

PngWriter::~PngWriter() {
    png_destroy_write_struct(&png_, &info_);
    if (stream_ != nullptr) std::fclose(stream_);
}

void PngWriter::writeRow(const std::vector<std::uint8_t>& row) {
    if (!putRow(png_, row.data())) failToWrite(name_);
}

void PngWriter::finish() {
    if (!endPng(png_)) failToWrite(name_);
    std::FILE* const stream = stream_;
    stream_ = nullptr;
    if (std::fclose(stream) != 0) failToWrite(name_);
}

}  // namespace kscli
