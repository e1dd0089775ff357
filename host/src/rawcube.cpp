// Raw cubes are read in runs that lie together in the file, a buffer of a few hundred kilobytes at a time so that
// samples are converted while they are still in the cache, and never through a mapping: a short file then is an error
// of a read, not a signal.
#include "rawcube.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "sampleloops.hpp"

namespace kshost {
namespace {

constexpr std::int64_t kBufferBytes = 1024 * 1024;
// A target that is larger than this will not be found in the cache by who asked for it.
constexpr std::size_t kStreamSamples = 2 * 1024 * 1024;
constexpr std::int64_t kBandTileBytes = 2 * 1024 * 1024;
// Two wanted runs with less than this between them are cheaper to read as one: a system call costs as much.
constexpr std::int64_t kGapBytes = 4096;
// Channels of one cache line of floats: a pixel's part of a group is written whole.
constexpr std::size_t kGroup = 16;

using Byte = unsigned char;

std::size_t size(std::int64_t value) { return static_cast<std::size_t>(value); }

std::string systemText(int error) { return std::strerror(error); }

// One pread or pwrite may move less than asked.
std::string readAt(int descriptor, void* buffer, std::int64_t bytes, std::int64_t position) {
    auto* to = static_cast<Byte*>(buffer);
    while (bytes > 0) {
        const ssize_t got = ::pread(descriptor, to, size(bytes), position);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return "cannot read the samples: " + systemText(errno);
        if (got == 0) return "the file ends at byte " + std::to_string(position) + ", before the samples asked for";
        to += got;
        bytes -= got;
        position += got;
    }
    return {};
}

std::string writeAt(int descriptor, const void* buffer, std::int64_t bytes, std::int64_t position) {
    const auto* from = static_cast<const Byte*>(buffer);
    while (bytes > 0) {
        const ssize_t put = ::pwrite(descriptor, from, size(bytes), position);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return "cannot write the samples: " + systemText(errno);
        from += put;
        bytes -= put;
        position += put;
    }
    return {};
}

bool consecutive(const std::vector<int>& channels) {
    for (std::size_t c = 1; c < channels.size(); ++c)
        if (channels[c] != channels[c - 1] + 1) return false;
    return true;
}

// A transfer worked out for one layout: which lines, columns and channels of the file it touches.
class Plan {
public:
    Plan(const RawLayout& cube, const Transfer& transfer)
        : layout(cube),
          t(transfer),
          bytes(static_cast<std::int64_t>(sampleSize(cube.type))),
          channelCount(transfer.channels.size()),
          everyColumn(transfer.everyColumn()),
          everyLine(transfer.everyLine()),
          inOrder(consecutive(transfer.channels)) {
        for (const int channel : t.channels) bands.push_back(channel - 1);
        firstBand = *std::min_element(bands.begin(), bands.end());
        lastBand = *std::max_element(bands.begin(), bands.end());
    }

    std::int64_t line(std::int64_t i) const { return t.line(i); }
    std::int64_t column(std::int64_t i) const { return t.column(i); }
    std::int64_t position(std::int64_t x, std::int64_t y, std::int64_t band) const {
        return layout.offset + x * layout.pixelStride + y * layout.lineStride + band * layout.bandStride;
    }
    bool swapped() const { return layout.bigEndian != (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__); }
    bool streamed() const { return target(t.bufHeight, 0) >= kStreamSamples; }
    std::size_t target(std::int64_t row, std::int64_t column) const {
        return (size(row) * size(t.bufWidth) + size(column)) * channelCount;
    }

    const RawLayout& layout;
    const Transfer& t;
    const std::int64_t bytes;
    const std::size_t channelCount;
    const bool everyColumn;
    const bool everyLine;
    const bool inOrder;
    std::vector<std::int64_t> bands;
    std::int64_t firstBand = 0;
    std::int64_t lastBand = 0;
};

// ---- pixel-interleaved files ----

class PixelReader {
public:
    PixelReader(int descriptor, const Plan& plan, const SampleCodec& codec)
        : descriptor_(descriptor), plan_(plan), codec_(codec) {
        for (const std::int64_t band : plan.bands) channels_.push_back(size(band - plan.firstBand));
        pixelBytes_ = (plan.lastBand - plan.firstBand + 1) * plan.bytes;
        buffer_.reset(new Byte[size(std::max(kBufferBytes, plan.layout.pixelStride))]);
    }

    std::string read(float* target) {
        const Transfer& t = plan_.t;
        const bool wholeLines = plan_.everyColumn && plan_.everyLine && t.width == plan_.layout.width &&
                                plan_.layout.lineStride == plan_.layout.pixelStride * t.width;
        // Whole lines one after another are one long line.
        if (wholeLines) return readRun(t.xOff, t.yOff, std::int64_t{t.width} * t.height, target);
        for (std::int64_t row = 0; row < t.bufHeight; ++row) {
            float* to = target + plan_.target(row, 0);
            const std::int64_t line = plan_.line(row);
            std::string why = plan_.everyColumn ? readRun(t.xOff, line, t.width, to) : readReduced(line, to);
            if (!why.empty()) return why;
        }
        return {};
    }

private:
    std::string readRun(std::int64_t x, std::int64_t y, std::int64_t pixels, float* to) {
        const std::int64_t stride = plan_.layout.pixelStride;
        const std::int64_t step = std::max<std::int64_t>(1, kBufferBytes / stride);
        const bool plain = plan_.inOrder && pixelBytes_ == stride;
        for (std::int64_t p = 0; p < pixels; p += step) {
            const std::int64_t count = std::min(step, pixels - p);
            const std::int64_t from = plan_.position(x, y, plan_.firstBand) + p * stride;
            std::string why = readAt(descriptor_, buffer_.get(), (count - 1) * stride + pixelBytes_, from);
            if (!why.empty()) return why;
            float* out = to + size(p) * plan_.channelCount;
            if (plain)
                convert(size(count) * plan_.channelCount, out);
            else
                codec_.pickPixels(buffer_.get(), size(stride / plan_.bytes), nullptr, size(count), channels_.data(),
                                  plan_.channelCount, out);
        }
        return {};
    }

    void convert(std::size_t samples, float* out) const {
        if (!convertRunFast(plan_.layout.type, plan_.swapped(), buffer_.get(), samples, out, plan_.streamed()))
            codec_.toFloat(buffer_.get(), samples, out);
    }

    // Wanted pixels that lie close together are read in one run, others one by one.
    std::string readReduced(std::int64_t line, float* to) {
        const std::int64_t stride = plan_.layout.pixelStride;
        std::int64_t first = 0;
        while (first < plan_.t.bufWidth) {
            const std::int64_t start = plan_.column(first);
            pixels_.assign(1, 0);
            std::int64_t last = start;
            std::int64_t next = first + 1;
            for (; next < plan_.t.bufWidth; ++next) {
                const std::int64_t column = plan_.column(next);
                if ((column - last) * stride - pixelBytes_ > kGapBytes) break;
                if ((column - start) * stride + pixelBytes_ > kBufferBytes) break;
                pixels_.push_back(size(column - start));
                last = column;
            }
            std::string why = readAt(descriptor_, buffer_.get(), (last - start) * stride + pixelBytes_,
                                     plan_.position(start, line, plan_.firstBand));
            if (!why.empty()) return why;
            codec_.pickPixels(buffer_.get(), size(stride / plan_.bytes), pixels_.data(), pixels_.size(),
                              channels_.data(), plan_.channelCount, to + size(first) * plan_.channelCount);
            first = next;
        }
        return {};
    }

    const int descriptor_;
    const Plan& plan_;
    const SampleCodec& codec_;
    std::vector<std::size_t> channels_;
    std::vector<std::size_t> pixels_;
    std::int64_t pixelBytes_ = 0;
    std::unique_ptr<Byte[]> buffer_;
};

// ---- files with whole rows of one channel (BIL, BSQ) ----

// Reads a tile of some lines, columns and channels into one buffer and transposes it.
class RowReader {
public:
    RowReader(int descriptor, const Plan& plan, const SampleCodec& codec)
        : descriptor_(descriptor), plan_(plan), codec_(codec) {}

    std::string read(float* target) {
        const Transfer& t = plan_.t;
        chooseTile();
        for (std::int64_t row = 0; row < t.bufHeight; row += tileLines_)
            for (std::int64_t column = 0; column < t.bufWidth; column += tileColumns_)
                for (std::size_t channel = 0; channel < plan_.channelCount; channel += tileChannels_) {
                    const Tile tile{row,     std::min<std::int64_t>(tileLines_, t.bufHeight - row),
                                    column,  std::min<std::int64_t>(tileColumns_, t.bufWidth - column),
                                    channel, std::min(tileChannels_, plan_.channelCount - channel)};
                    std::string why = readTile(tile, target);
                    if (!why.empty()) return why;
                }
        return {};
    }

private:
    struct Tile {
        std::int64_t row, rows, column, columns;
        std::size_t channel, channels;
    };

    bool lineInterleaved() const { return plan_.layout.bandStride <= plan_.layout.lineStride; }

    void chooseTile() {
        const Transfer& t = plan_.t;
        const std::int64_t widest = kBufferBytes / 4 / plan_.bytes;
        // Source samples for each buffer column, rounded up.
        const std::int64_t reduction = std::max<std::int64_t>(1, (t.width + t.bufWidth - 1) / t.bufWidth);
        tileColumns_ = std::clamp<std::int64_t>(widest / reduction, 1, t.bufWidth);
        rowBytes_ = std::min<std::int64_t>(t.width, tileColumns_ * reduction) * plan_.bytes;
        const std::int64_t rowsThatFit = std::max<std::int64_t>(1, kBufferBytes / rowBytes_);
        if (lineInterleaved()) {
            tileChannels_ = std::min<std::size_t>(plan_.channelCount, size(rowsThatFit));
            tileLines_ = std::max<std::int64_t>(1, rowsThatFit / static_cast<std::int64_t>(tileChannels_));
        } else {
            // As many channels as still give runs that are worth a call; all of them, if possible.
            tileChannels_ = std::min<std::size_t>(plan_.channelCount, size(kBandTileBytes / kGapBytes));
            const std::int64_t lines = kBandTileBytes / rowBytes_ / static_cast<std::int64_t>(tileChannels_);
            tileLines_ = std::max<std::int64_t>(1, lines);
        }
        tileLines_ = std::min<std::int64_t>(tileLines_, t.bufHeight);
    }

    std::string readTile(const Tile& tile, float* target) {
        const std::int64_t x = plan_.column(tile.column);
        const std::int64_t samples = plan_.column(tile.column + tile.columns - 1) - x + 1;
        const std::string why = lineInterleaved() ? gatherLines(tile, x, samples) : gatherBands(tile, x, samples);
        if (!why.empty()) return why;
        columns_.clear();
        if (!plan_.everyColumn)
            for (std::int64_t i = 0; i < tile.columns; ++i) columns_.push_back(size(plan_.column(tile.column + i) - x));
        for (std::int64_t row = 0; row < tile.rows; ++row) {
            const void** rows = rows_.data() + size(row) * tile.channels;
            if (!plan_.everyColumn) pickColumns(rows, tile);
            transpose(rows, tile, target + plan_.target(tile.row + row, tile.column) + tile.channel);
        }
        return {};
    }

    void transpose(const void* const* rows, const Tile& tile, float* to) const {
        if (!transposeRowsFast(plan_.layout.type, plan_.swapped(), rows, tile.channels, size(tile.columns), to,
                               plan_.channelCount, plan_.streamed()))
            codec_.rowsToPixels(rows, tile.channels, size(tile.columns), to, plan_.channelCount);
    }

    // The lines of a tile, one after another; the channels of a line in one run where they lie close together.
    std::string gatherLines(const Tile& tile, std::int64_t x, std::int64_t samples) {
        const RawLayout& layout = plan_.layout;
        const auto first = plan_.bands.begin() + static_cast<std::ptrdiff_t>(tile.channel);
        const auto [low, high] = std::minmax_element(first, first + static_cast<std::ptrdiff_t>(tile.channels));
        const std::int64_t bytes = samples * plan_.bytes;
        const std::int64_t span = (*high - *low) * layout.bandStride + bytes;
        const std::int64_t wanted = static_cast<std::int64_t>(tile.channels) * bytes;
        const std::int64_t gaps = static_cast<std::int64_t>(tile.channels) * kGapBytes;
        const bool together = span - wanted <= gaps && span <= 4 * kBufferBytes;
        const std::int64_t lineBytes = together ? span : wanted;
        // Whole lines of every channel follow one another in the file.
        const bool oneRun = together && plan_.everyLine && span == layout.lineStride;
        reserve(tile.rows * lineBytes);
        rows_.clear();
        if (oneRun) {
            std::string why =
                readAt(descriptor_, buffer_.get(), tile.rows * span, plan_.position(x, plan_.line(tile.row), *low));
            if (!why.empty()) return why;
        }
        for (std::int64_t row = 0; row < tile.rows; ++row) {
            const std::int64_t line = plan_.line(tile.row + row);
            Byte* to = buffer_.get() + row * lineBytes;
            if (together && !oneRun) {
                std::string why = readAt(descriptor_, to, span, plan_.position(x, line, *low));
                if (!why.empty()) return why;
            }
            for (std::size_t c = 0; c < tile.channels; ++c) {
                const std::int64_t band = plan_.bands[tile.channel + c];
                Byte* from =
                    together ? to + (band - *low) * layout.bandStride : to + static_cast<std::int64_t>(c) * bytes;
                if (!together) {
                    std::string why = readAt(descriptor_, from, bytes, plan_.position(x, line, band));
                    if (!why.empty()) return why;
                }
                rows_.push_back(from);
            }
        }
        return {};
    }

    // The channels of a tile, one after another; the lines of a channel in one run where they lie close together.
    std::string gatherBands(const Tile& tile, std::int64_t x, std::int64_t samples) {
        const RawLayout& layout = plan_.layout;
        const std::int64_t bytes = samples * plan_.bytes;
        const bool together = plan_.everyLine && layout.lineStride <= bytes + kGapBytes;
        const std::int64_t rowStride = together ? layout.lineStride : bytes;
        const std::int64_t bandBytes = (tile.rows - 1) * rowStride + bytes;
        reserve(static_cast<std::int64_t>(tile.channels) * bandBytes);
        rows_.resize(size(tile.rows) * tile.channels);
        for (std::size_t c = 0; c < tile.channels; ++c) {
            Byte* to = buffer_.get() + static_cast<std::int64_t>(c) * bandBytes;
            const std::int64_t band = plan_.bands[tile.channel + c];
            for (std::int64_t row = 0; row < tile.rows; ++row) {
                Byte* from = to + row * rowStride;
                rows_[size(row) * tile.channels + c] = from;
                if (together && row > 0) continue;
                std::string why = readAt(descriptor_, from, together ? bandBytes : bytes,
                                         plan_.position(x, plan_.line(tile.row + row), band));
                if (!why.empty()) return why;
            }
        }
        return {};
    }

    void pickColumns(const void** rows, const Tile& tile) {
        const std::int64_t bytes = tile.columns * plan_.bytes;
        picked_.resize(size(bytes) * tile.channels);
        for (std::size_t c = 0; c < tile.channels; ++c) {
            Byte* to = picked_.data() + size(bytes) * c;
            codec_.pickColumns(rows[c], columns_.data(), columns_.size(), to);
            rows[c] = to;
        }
    }

    void reserve(std::int64_t bytes) {
        if (bytes <= capacity_) return;
        buffer_.reset(new Byte[size(bytes)]);
        capacity_ = bytes;
    }

    const int descriptor_;
    const Plan& plan_;
    const SampleCodec& codec_;
    std::int64_t tileLines_ = 1;
    std::int64_t tileColumns_ = 1;
    std::size_t tileChannels_ = 1;
    std::int64_t rowBytes_ = 0;
    std::unique_ptr<Byte[]> buffer_;
    std::int64_t capacity_ = 0;
    std::vector<const void*> rows_;  // first sample of every line and channel of the tile
    std::vector<std::size_t> columns_;
    std::vector<Byte> picked_;
};

// ---- writing ----

class Writer {
public:
    Writer(int descriptor, const Plan& plan, const SampleCodec& codec)
        : descriptor_(descriptor), plan_(plan), codec_(codec), missing_(plan.t.missing) {
        missing_.resize(plan.channelCount, 0.0F);
    }

    std::string writePixels(const float* source) {
        const RawLayout& layout = plan_.layout;
        std::vector<std::size_t> channels;
        for (const std::int64_t band : plan_.bands) channels.push_back(size(band - plan_.firstBand));
        const std::int64_t pixelBytes = (plan_.lastBand - plan_.firstBand + 1) * plan_.bytes;
        const bool whole = plan_.inOrder && pixelBytes == layout.pixelStride;
        const std::int64_t step = std::max<std::int64_t>(1, kBufferBytes / layout.pixelStride);
        std::vector<Byte> buffer(size(step * layout.pixelStride));
        for (std::int64_t row = 0; row < plan_.t.height; ++row)
            for (std::int64_t x = 0; x < plan_.t.width; x += step) {
                const std::int64_t count = std::min<std::int64_t>(step, plan_.t.width - x);
                const std::int64_t bytes = (count - 1) * layout.pixelStride + pixelBytes;
                const std::int64_t at = plan_.position(plan_.t.xOff + x, plan_.t.yOff + row, plan_.firstBand);
                // Between the channels to write lie samples of others: they are put back as they were.
                std::string why = whole ? std::string() : readAt(descriptor_, buffer.data(), bytes, at);
                if (!why.empty()) return why;
                codec_.packPixels(source + plan_.target(row, x), size(count), channels.data(), plan_.channelCount,
                                  missing_.data(), buffer.data(), size(layout.pixelStride / plan_.bytes));
                why = writeAt(descriptor_, buffer.data(), bytes, at);
                if (!why.empty()) return why;
            }
        return {};
    }

    std::string writeRows(const float* source) {
        const RawLayout& layout = plan_.layout;
        const bool byLine = layout.bandStride <= layout.lineStride;
        const std::int64_t columns = std::min<std::int64_t>(plan_.t.width, kBufferBytes / 4 / plan_.bytes);
        const std::int64_t rowsThatFit = std::max<std::int64_t>(1, 4 * kBufferBytes / (columns * plan_.bytes));
        const auto channels = std::min(plan_.channelCount, byLine ? size(rowsThatFit) : kGroup);
        const std::int64_t lines =
            byLine ? 1 : std::max<std::int64_t>(1, rowsThatFit / static_cast<std::int64_t>(channels));
        for (std::int64_t row = 0; row < plan_.t.height; row += lines)
            for (std::int64_t x = 0; x < plan_.t.width; x += columns)
                for (std::size_t c = 0; c < plan_.channelCount; c += channels) {
                    std::string why =
                        writeTile(source, row, std::min(lines, plan_.t.height - row), x,
                                  std::min(columns, plan_.t.width - x), c, std::min(channels, plan_.channelCount - c));
                    if (!why.empty()) return why;
                }
        return {};
    }

private:
    std::string writeTile(const float* source, std::int64_t row, std::int64_t lines, std::int64_t x,
                          std::int64_t columns, std::size_t channel, std::size_t channels) {
        const std::int64_t bytes = columns * plan_.bytes;
        buffer_.resize(size(bytes * lines) * channels);
        rows_.resize(channels);
        for (std::int64_t line = 0; line < lines; ++line) {
            for (std::size_t c = 0; c < channels; ++c)
                rows_[c] = buffer_.data() + (size(lines) * c + size(line)) * size(bytes);
            codec_.pixelsToRows(source + plan_.target(row + line, x) + channel, plan_.channelCount, channels,
                                size(columns), missing_.data() + channel, rows_.data());
        }
        // Rows that follow one another in the buffer and in the file go out together.
        Byte* run = buffer_.data();
        std::int64_t runBytes = 0;
        std::int64_t runAt = 0;
        for (std::size_t c = 0; c < channels; ++c)
            for (std::int64_t line = 0; line < lines; ++line) {
                const std::int64_t at =
                    plan_.position(plan_.t.xOff + x, plan_.t.yOff + row + line, plan_.bands[channel + c]);
                if (runBytes > 0 && runAt + runBytes != at) {
                    std::string why = writeAt(descriptor_, run, runBytes, runAt);
                    if (!why.empty()) return why;
                    run += runBytes;
                    runBytes = 0;
                }
                if (runBytes == 0) runAt = at;
                runBytes += bytes;
            }
        return writeAt(descriptor_, run, runBytes, runAt);
    }

    const int descriptor_;
    const Plan& plan_;
    const SampleCodec& codec_;
    std::vector<float> missing_;
    std::vector<Byte> buffer_;
    std::vector<void*> rows_;
};

}  // namespace

bool RawLayout::pixelInterleaved() const {
    const auto bytes = static_cast<std::int64_t>(sampleSize(type));
    return bands == 1 ? pixelStride == bytes : bandStride == bytes;
}

std::string RawLayout::problem() const {
    if (width < 1 || height < 1 || bands < 1) return "the image has no samples";
    const auto bytes = static_cast<std::int64_t>(sampleSize(type));
    if (offset < 0 || pixelStride < bytes || lineStride < bytes || bandStride < bytes)
        return "the samples do not lie in a known order";
    if (bandStride != bytes && pixelStride != bytes && bands > 1) return "the samples do not lie in a known order";
    if (bands == 1 && pixelStride != bytes) return "the samples do not lie in a known order";
    std::int64_t last = offset;
    const std::int64_t reaches[3][2] = {{pixelStride, width - 1}, {lineStride, height - 1}, {bandStride, bands - 1}};
    bool tooLarge = __builtin_add_overflow(last, bytes, &last);
    for (const auto& [stride, steps] : reaches) {
        std::int64_t reach = 0;
        tooLarge = tooLarge || __builtin_mul_overflow(stride, steps, &reach);
        tooLarge = tooLarge || __builtin_add_overflow(last, reach, &last);
    }
    return tooLarge ? "the image is larger than a file can be" : "";
}

std::int64_t RawLayout::fileSize() const {
    return offset + pixelStride * (width - 1) + lineStride * (height - 1) + bandStride * (bands - 1) +
           static_cast<std::int64_t>(sampleSize(type));
}

RawCube::RawCube(RawLayout layout, bool writable) : layout_(std::move(layout)) {
    const std::string problem = layout_.problem();
    if (!problem.empty()) throw std::runtime_error(layout_.path + ": " + problem);
    if (writable) {
        descriptor_ = ::open(layout_.path.c_str(), O_RDWR | O_CLOEXEC);
        if (descriptor_ < 0) whyReadOnly_ = "the file cannot be written: " + systemText(errno);
    } else {
        whyReadOnly_ = "the file was opened for reading only";
    }
    if (descriptor_ < 0) descriptor_ = ::open(layout_.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) throw std::runtime_error(layout_.path + ": " + systemText(errno));
}

RawCube::~RawCube() { ::close(descriptor_); }

std::string RawCube::shortness() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || status.st_size >= layout_.fileSize()) return {};
    return "the file has " + std::to_string(status.st_size) + " bytes where it should have " +
           std::to_string(layout_.fileSize());
}

std::string RawCube::read(const Transfer& transfer, float* buffer) const {
    const Plan plan(layout_, transfer);
    const SampleCodec& codec = sampleCodec(layout_.type, plan.swapped());
    const std::string why = layout_.pixelInterleaved() ? PixelReader(descriptor_, plan, codec).read(buffer)
                                                       : RowReader(descriptor_, plan, codec).read(buffer);
    const std::string shortened = why.empty() ? why : shortness();
    return shortened.empty() ? why : why + " (" + shortened + ")";
}

std::string RawCube::write(const Transfer& transfer, const float* buffer) {
    if (!whyReadOnly_.empty()) return whyReadOnly_;
    // A hole in the middle of a file would read as zeros.
    const std::string shortened = shortness();
    if (!shortened.empty()) return shortened + ", so nothing is written to it";
    const Plan plan(layout_, transfer);
    Writer writer(descriptor_, plan, sampleCodec(layout_.type, plan.swapped()));
    written_ = true;
    return layout_.pixelInterleaved() ? writer.writePixels(buffer) : writer.writeRows(buffer);
}

std::string RawCube::flush() {
    if (!written_) return {};
    if (::fdatasync(descriptor_) != 0) return "cannot bring the samples to the disk: " + systemText(errno);
    written_ = false;
    return {};
}

}  // namespace kshost
