#include "clikit.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <linux/capability.h>
#include <png.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace clitest {
namespace {

std::string contents(const fs::path& name) {
    std::ifstream stream(name, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void redirect(int descriptor, const char* name) {
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
}

/// Makes file permissions count for root too, from the next exec on. Another user could not even enter a build folder
/// that lies in a private home.
bool dropPowerOverPermissions() {
    return prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0 &&
           prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0;
}

[[noreturn]] void runChild(const std::string& folder, std::vector<char*>& argv, const RunOptions& options,
                           const std::string& out, const std::string& err) {
    redirect(STDOUT_FILENO, out.c_str());
    redirect(STDERR_FILENO, err.c_str());
    if (chdir(folder.c_str()) != 0) _exit(126);
    if (options.heedPermissions && geteuid() == 0) {
        if (!dropPowerOverPermissions()) _exit(126);
    }
    if (options.largestFileBytes > 0) {
        const rlim_t bytes = static_cast<rlim_t>(options.largestFileBytes);
        const struct rlimit limit = {bytes, bytes};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    execv(argv[0], argv.data());
    _exit(127);
}

template <class T>
void append(std::string& bytes, double value) {
    const T sample = static_cast<T>(value);
    char raw[sizeof(T)];
    std::memcpy(raw, &sample, sizeof(T));
    bytes.append(raw, sizeof(T));
}

}  // namespace

void CliTest::SetUp() {
    std::string pattern = (fs::temp_directory_path() / "ks-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    fs::permissions(dir_, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                              fs::perms::others_read | fs::perms::others_exec);
}

void CliTest::TearDown() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
}

Result CliTest::ks(const std::vector<std::string>& arguments, const RunOptions& options) const {
    // The captured streams live beside the folder, so that they are not among its files.
    const std::string out = options.standardOutput.empty() ? dir_.string() + ".out" : options.standardOutput;
    const std::string err = dir_.string() + ".err";
    std::vector<std::string> words = {KS_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) runChild(dir_.string(), argv, options, out, err);
    if (options.interruptAfterMilliseconds > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(options.interruptAfterMilliseconds));
        kill(child, SIGINT);
    }
    int status = 0;
    Result result;
    if (child < 0 || waitpid(child, &status, 0) != child) return result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (options.standardOutput.empty()) result.out = contents(out);
    result.err = contents(err);
    std::error_code ec;
    if (options.standardOutput.empty()) fs::remove(out, ec);
    fs::remove(err, ec);
    return result;
}

std::vector<std::string> CliTest::files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void CliTest::write(const std::string& name, const std::string& bytes) const {
    std::ofstream(dir_ / name, std::ios::binary) << bytes;
}
std::string CliTest::read(const std::string& name) const { return contents(dir_ / name); }

std::vector<float> CliTest::floats(const std::string& name) const {
    const std::string bytes = read(name);
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

void writeCube(const fs::path& name, const Cube& cube) {
    std::string bytes;
    for (int y = 0; y < cube.height; ++y) {
        for (int x = 0; x < cube.width; ++x) {
            for (int b = 0; b < cube.bands; ++b) {
                const double value = cube.value(x, y, b);
                switch (cube.type) {
                    case 1:
                        append<std::uint8_t>(bytes, value);
                        break;
                    case 2:
                        append<std::int16_t>(bytes, value);
                        break;
                    case 12:
                        append<std::uint16_t>(bytes, value);
                        break;
                    default:
                        append<float>(bytes, value);
                        break;
                }
            }
        }
    }
    std::ofstream(name, std::ios::binary) << bytes;
    std::ofstream header(fs::path(name).replace_extension(".hdr"));
    header << "ENVI\nsamples = " << cube.width << "\nlines = " << cube.height << "\nbands = " << cube.bands
           << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " << cube.type
           << "\ninterleave = bip\nbyte order = 0\n"
           << cube.header;
}

std::string braces(const std::vector<double>& values) {
    std::ostringstream text;
    text.precision(12);
    for (std::size_t i = 0; i < values.size(); ++i) text << (i == 0 ? "{" : ", ") << values[i];
    text << "}";
    return text.str();
}

std::vector<int> Picture::at(int x, int y) const {
    const auto start = rgb.begin() + 3 * (static_cast<std::ptrdiff_t>(y) * width + x);
    return {start, start + 3};
}

Picture readPicture(const fs::path& name) {
    Picture picture;
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, name.c_str()) == 0) return picture;
    image.format = PNG_FORMAT_RGB;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr) == 0) return picture;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    return picture;
}

std::vector<std::vector<std::string>> cellsOf(const std::string& csv) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(csv);
    for (std::string line; std::getline(lines, line);) {
        rows.emplace_back(1);
        for (const char c : line) {
            if (c == ',') {
                rows.back().emplace_back();
            } else {
                rows.back().back() += c;
            }
        }
    }
    return rows;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++found;
    return found;
}

}  // namespace clitest
