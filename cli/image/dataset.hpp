// Owners of the library's records: an open data set and an explicit window, released whole whatever happens.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <kslib.h>

#include <kshost_app.h>

namespace kscli {

/// The host's channel types; whatever lies above is read as 32-bit floats too.
enum SampleType { kUInt8 = 1, kInt16 = 2, kUInt16 = 3, kFloat32 = 4 };
const char* sampleTypeName(int type);

class DataSet {
public:
    /// Opens an image for reading; throws a Failure that tells a missing, empty or foreign file apart.
    static DataSet open(const std::string& name);
    /// Opens one to write samples; its metadata stays as it is.
    static DataSet openForUpdate(const std::string& name);
    /// Takes over a record that the caller filled, usually to create() its file.
    explicit DataSet(KSDataSet* record) : record_(record) {}
    ~DataSet() { release(); }
    DataSet(DataSet&& other) noexcept : record_(other.record_) { other.record_ = nullptr; }
    DataSet& operator=(DataSet&&) = delete;

    /// A detached description of some of the bands, complete: the heading and explicit channels 1..n included.
    DataSet describe(const std::vector<int>& bands) const;
    /// Makes the file `name` for this description with samples of one type.
    void create(const std::string& name, int sampleType);
    /// Removes the first transforms of the chain, as for samples to which they were applied.
    void dropFirstTransforms(int count);
    /// Writes the metadata of a data set that was created here; what the application knows better is set after it.
    void writeMetadata();
    /// Closes now instead of at the end of its life; the host counts what could not be stored.
    void close() { release(); }

    KSDataSet* operator->() const { return record_; }
    KSDataSet* get() const { return record_; }
    HostFile* file() const { return record_->GDBFile; }

    int bandCount() const { return record_->Sensor.nNumBands; }
    int channel(int band) const { return record_->pBandRefs[band].nChan; }
    /// Centre wavelength in nanometres, or a negative value when the file gives none.
    double wavelength(int band) const;
    double fwhm(int band) const;
    bool hasWavelengths() const;
    bool isGood(int band) const;
    const char* qualityName(int band) const;
    /// What level k's values are, k = 0 .. nNumRadTrans.
    std::vector<std::string> levelDescriptions() const;
    /// Checks a level that the user asked for; a negative one means the highest.
    int level(int asked) const;

private:
    void release();
    KSDataSet* record_;
};

/// Samples of some bands in a rectangle of an image, pixel-interleaved.
class Window {
public:
    Window(int width, int height, int xInt, int yInt, const std::vector<int>& bands);
    ~Window() { KSFreeWinEx(&window_); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void place(int x, int y) { window_.nXOff = x, window_.nYOff = y; }
    void resizeRows(int rows);
    void read(const DataSet& dataSet, int level);
    /// Writes stored values (level 0); sample intervals are 1.
    void write(const DataSet& dataSet);
    /// Exchanges the samples of two windows of the same number of samples and bands.
    void swapSamples(Window& other);

    int columns() const { return window_.nNumXSamples; }
    int rows() const { return window_.nNumYSamples; }
    int bandCount() const { return window_.SampDesc.nNumBands; }
    std::size_t pixelCount() const { return static_cast<std::size_t>(columns()) * static_cast<std::size_t>(rows()); }
    std::size_t sampleCount() const { return pixelCount() * static_cast<std::size_t>(bandCount()); }
    KSWinEx* record() { return &window_; }
    float* samples() { return window_.pafSamples; }
    /// The band vector of one pixel.
    float* pixel(int x, int y) {
        return window_.papafStart[y] + static_cast<std::size_t>(x) * static_cast<std::size_t>(bandCount());
    }

private:
    KSWinEx window_;
};

/// The combined gains and offsets of the first `level` transforms for some bands; ones and zeros at level 0.
struct Calibration {
    std::vector<float> gains;
    std::vector<float> offsets;
};
Calibration calibration(const DataSet& dataSet, const std::vector<int>& bands, int level);

}  // namespace kscli
