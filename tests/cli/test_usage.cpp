// What every command has in common: help, exit status, and what happens with inputs and outputs that cannot be used.
#include <nlohmann/json.hpp>

#include <random>
#include <sstream>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "clikit.hpp"

namespace clitest {
namespace {

class Usage : public CliTest {
protected:
    // A full command line of every command that reads an image, writing (where it does) into this folder.
    static std::vector<std::vector<std::string>> readers(const std::string& cube) {
        return {{"info", cube},
                {"quicklook", cube, "out.png"},
                {"spectrum", cube, "0,0", "out.svg"},
                {"convert", cube, "out.tif"},
                {"convert", cube, "out.img"}};
    }
};

TEST_F(Usage, VersionIsPrinted) {
    const Result result = ks({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "ks 0.")) << result.out;
}

TEST_F(Usage, EveryCommandHasHelpWithAnExample) {
    const Result all = ks({"--help"});
    EXPECT_EQ(all.status, 0);
    for (const char* command : {"info", "quicklook", "spectrum", "convert", "synth"}) {
        EXPECT_TRUE(contains(all.out, command));
        const Result help = ks({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_TRUE(contains(help.out, std::string("Example:\n  ks ") + command)) << help.out;
        EXPECT_EQ(help.err, "");
    }
}

TEST_F(Usage, HelpFitsEightyColumns) {
    for (const char* command : {"", "info", "quicklook", "spectrum", "convert", "synth"}) {
        const Result help = *command == '\0' ? ks({"--help"}) : ks({command, "--help"});
        std::istringstream lines(help.out);
        for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(Usage, MistakesAreNamedAndHelpIsPointedTo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"inof", "a.img"}, "'inof' is not a command; choose one of: info, quicklook"},
        {{}, "no command is given"},
        {{"info", "a.img", "--jsn"}, "--jsn"},
        {{"quicklook", "a", "b.png", "--max-size", "-3"}, "'-3' is not a whole number from 1 to 2147483647"},
        {{"convert", "a", "b.tif", "--level", "99999999999"}, "'99999999999' is not a whole number from 0"},
        {{"convert", "a", "b.tif", "--window", "-1,0,2,2"}, "'-1' is not a whole number from 0"},
        {{"synth", "a", "--seed", "99999999999999999999"}, "is not a whole number from 0 to 18446744073709551615"}};
    for (const auto& [arguments, words] : cases) {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(contains(result.err, "ks: error: ")) << result.err;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
        EXPECT_TRUE(contains(result.err, "--help")) << result.err;
    }
}

TEST_F(Usage, WrongUsageExitsWithOne) {
    const std::vector<std::vector<std::string>> wrong = {{},
                                                         {"nonsense"},
                                                         {"info"},
                                                         {"info", "a", "b"},
                                                         {"info", "a", "--nonsense"},
                                                         {"quicklook", "a"},
                                                         {"quicklook", "a", "b.png", "--level", "-1"},
                                                         {"quicklook", "a", "b.png", "--stretch", "2"},
                                                         {"quicklook", "a", "b.png", "--max-size", "0"},
                                                         {"spectrum", "a", "0,0"},
                                                         {"spectrum", "a", "b.svg"},
                                                         {"convert", "a"},
                                                         {"convert", "a", "b.tif", "--window", "1,2,3"},
                                                         {"convert", "a", "b.tif", "--every", "0"},
                                                         {"convert", "a", "b.tif", "--type", "int12"},
                                                         {"convert", "a", "b.tif", "--level", "one"},
                                                         {"synth"},
                                                         {"synth", "a", "--bands", "0"},
                                                         {"synth", "a", "--materials", "99"},
                                                         {"synth", "a", "--seed", "-3"}};
    for (const auto& arguments : wrong) {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
        EXPECT_NE(result.err, "") << testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "") << testing::PrintToString(arguments);
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Usage, MissingImageIsNamed) {
    for (const auto& arguments : readers("nowhere.img")) {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_TRUE(contains(result.err, "nowhere.img: no such file")) << result.err;
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Usage, EmptyFileFolderHeaderAndTextAreTold) {
    write("empty.img", "");
    write("notes.txt", "these are notes, not an image\n");
    fs::create_directory(dir() / "folder");
    writeCube(dir() / "cube.img", Cube());
    const std::vector<std::string> before = files();
    for (const auto& [name, words] :
         std::vector<std::pair<std::string, std::string>>{{"empty.img", "empty.img is empty"},
                                                          {"folder", "folder is a folder"},
                                                          {"cube.hdr", "cube.hdr is a header"},
                                                          {"notes.txt", "notes.txt cannot be opened as an image"}}) {
        for (const auto& arguments : readers(name)) {
            const Result result = ks(arguments);
            EXPECT_EQ(result.status, 1) << name << " " << arguments[0];
            EXPECT_TRUE(contains(result.err, words)) << result.err;
            EXPECT_FALSE(contains(result.err, "GDB") || contains(result.err, "KSOpen")) << result.err;
        }
    }
    EXPECT_EQ(files(), before);
}

TEST_F(Usage, UnreadableImageIsTold) {
    writeCube(dir() / "cube.img", Cube());
    fs::permissions(dir() / "cube.img", fs::perms::none);
    RunOptions options;
    options.heedPermissions = true;
    const Result result = ks({"info", "cube.img"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "cube.img cannot be read")) << result.err;
}

TEST_F(Usage, ExistingOutputIsKeptUnlessForced) {
    writeCube(dir() / "cube.img", Cube());
    for (const std::string name : {"out.png", "out.svg", "out.tif", "out.img"}) write(name, "precious");
    for (auto arguments : readers("cube.img")) {
        if (arguments[0] == "info") continue;
        const std::string output = arguments.back();
        const Result refused = ks(arguments);
        EXPECT_EQ(refused.status, 1) << output;
        EXPECT_TRUE(contains(refused.err, output + " exists")) << refused.err;
        EXPECT_EQ(read(output), "precious");
        arguments.push_back("--force");
        const Result forced = ks(arguments);
        EXPECT_EQ(forced.status, 0) << forced.err;
        EXPECT_NE(read(output), "precious") << output;
    }
}

TEST_F(Usage, ForcingAPictureLeavesAnImageOfTheSameStemAlone) {
    writeCube(dir() / "cube.img", Cube());
    const std::string header = read("cube.hdr");
    ASSERT_EQ(ks({"quicklook", "cube.img", "cube.png"}).status, 0);
    ASSERT_EQ(ks({"quicklook", "cube.img", "cube.png", "--force"}).status, 0);
    EXPECT_EQ(read("cube.hdr"), header);
    EXPECT_EQ(ks({"info", "cube.img"}).status, 0);
}

TEST_F(Usage, OutputInAMissingOrReadOnlyFolderIsRefused) {
    writeCube(dir() / "cube.img", Cube());
    fs::create_directory(dir() / "locked");
    fs::permissions(dir() / "locked",
                    fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec);
    RunOptions options;
    options.heedPermissions = true;
    for (const std::string folder : {"missing", "locked"}) {
        for (auto arguments : readers("cube.img")) {
            if (arguments[0] == "info") continue;
            arguments.back() = folder + "/" + arguments.back();
            const Result result = ks(arguments, options);
            EXPECT_EQ(result.status, 1) << result.err;
            EXPECT_TRUE(contains(result.err, folder)) << result.err;
        }
        EXPECT_EQ(ks({"synth", folder + "/s.img", "--size", "4x4"}, options).status, 1);
    }
    EXPECT_TRUE(fs::is_empty(dir() / "locked"));
}

TEST_F(Usage, ImageInAReadOnlyFolderIsRead) {
    fs::create_directory(dir() / "locked");
    writeCube(dir() / "locked" / "cube.img", Cube());
    fs::permissions(dir() / "locked",
                    fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec);
    RunOptions options;
    options.heedPermissions = true;
    const Result result = ks({"info", "locked/cube.img", "--json"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    fs::permissions(dir() / "locked", fs::perms::owner_all);
}

TEST_F(Usage, FullStandardOutputIsAFailure) {
    writeCube(dir() / "cube.img", Cube());
    RunOptions options;
    options.standardOutput = "/dev/full";
    const Result result = ks({"info", "cube.img"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "standard output")) << result.err;
}

TEST_F(Usage, QuietSaysNothingWhenAllIsWell) {
    writeCube(dir() / "cube.img", Cube());
    EXPECT_NE(ks({"quicklook", "cube.img", "a.png"}).err, "");
    EXPECT_EQ(ks({"-q", "quicklook", "cube.img", "b.png"}).err, "");
    EXPECT_EQ(ks({"quicklook", "cube.img", "c.png", "--quiet"}).err, "");
}

TEST_F(Usage, TruncatedImageGivesStatusTwoAndNoCopy) {
    Cube cube;
    cube.height = 40;
    writeCube(dir() / "cube.img", cube);
    fs::resize_file(dir() / "cube.img", 40 * 4 * 5);  // half of the samples
    const Result picture = ks({"quicklook", "cube.img", "out.png"});
    EXPECT_EQ(picture.status, 2) << picture.err;
    EXPECT_TRUE(contains(picture.err, "incomplete")) << picture.err;
    // What is there is shown, what is missing is black.
    EXPECT_NE(readPicture(dir() / "out.png").at(0, 19), std::vector<int>({0, 0, 0}));
    EXPECT_EQ(readPicture(dir() / "out.png").at(3, 20), std::vector<int>({0, 0, 0}));
    const std::vector<std::string> before = files();
    for (const char* output : {"copy.tif", "copy.img"}) {
        const Result copy = ks({"convert", "cube.img", output});
        EXPECT_EQ(copy.status, 2) << copy.err;
        EXPECT_TRUE(contains(copy.err, "was not kept")) << copy.err;
    }
    EXPECT_EQ(files(), before);
}

// As on a full disk: every command says so, keeps nothing, and tells no name that it made up.
TEST_F(Usage, OutputThatCannotGrowIsNotKept) {
    Cube cube;
    cube.width = 200;
    cube.height = 100;
    std::mt19937 random(1);  // a picture of noise stays large
    cube.value = [&random](int, int, int) { return static_cast<double>(random() % 65536); };
    writeCube(dir() / "cube.img", cube);
    const std::vector<std::string> before = files();
    RunOptions options;
    options.largestFileBytes = 4096;
    auto commands = readers("cube.img");
    commands.push_back({"synth", "scene.img", "--size", "50x50"});
    for (const auto& arguments : commands) {
        if (arguments[0] == "info") continue;
        const Result result = ks(arguments, options);
        EXPECT_TRUE(result.status == 1 || result.status == 2) << arguments[0] << " " << result.status;
        EXPECT_TRUE(contains(result.err, "ks: error: ")) << result.err;
        EXPECT_FALSE(contains(result.err, ".ks-unfinished")) << result.err;
        EXPECT_EQ(files(), before) << arguments[0];
    }
}

TEST_F(Usage, WhatAKilledRunLeftIsClearedAwayUnlessItLives) {
    writeCube(dir() / "cube.img", Cube());
    fs::create_directory(dir() / ".ks-unfinished-killed");
    write(".ks-unfinished-killed/out.png", "half a picture");
    fs::create_directory(dir() / ".ks-unfinished-alive");
    write(".ks-unfinished-alive/out.png", "half a picture");
    const int alive = open(path(".ks-unfinished-alive").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(alive, LOCK_EX), 0);
    EXPECT_EQ(ks({"quicklook", "cube.img", "out.png"}).status, 0);
    EXPECT_FALSE(fs::exists(dir() / ".ks-unfinished-killed"));
    EXPECT_EQ(read(".ks-unfinished-alive/out.png"), "half a picture");
    close(alive);
}

TEST_F(Usage, InterruptedCommandLeavesNothingBehind) {
    RunOptions options;
    options.interruptAfterMilliseconds = 400;
    const Result result = ks({"synth", "big.img", "--size", "4000x4000"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "stopped")) << result.err;
    EXPECT_TRUE(files().empty()) << testing::PrintToString(files());
}

}  // namespace
}  // namespace clitest
