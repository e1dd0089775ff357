// ks: hyperspectral images from the command line.
// Exit status: 0 done; 1 wrong usage or a command that failed; 2 samples or metadata could not all be moved.
#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include <kshost_app.h>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/report.hpp"

namespace {

enum ExitStatus { kDone = 0, kFailed = 1, kIncomplete = 2 };

int finish() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        kscli::printError("standard output cannot be written; is the disk full?");
        return kFailed;
    }
    if (KSHostErrorCount() > 0) {
        kscli::printError(
            "some samples or metadata could not be read or stored (see above); the result is incomplete.");
        return kIncomplete;
    }
    return kDone;
}

int run(const kscli::Command& command) {
    try {
        command();
        return finish();
    } catch (const kscli::Incomplete& e) {
        kscli::printError(e.what());
        return kIncomplete;
    } catch (const std::bad_alloc&) {
        kscli::printError("not enough memory. Lower KSHOST_MEMORY (bytes) or select fewer bands or pixels.");
    } catch (const std::exception& e) {
        kscli::printError(e.what());
    }
    return kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Look at, convert and make hyperspectral images.", "ks"};
    bool quiet = false;
    kscli::Command command;
    app.formatter(std::make_shared<kscli::HelpFormatter>());
    app.set_version_flag("--version", "ks " KS_VERSION);
    app.add_flag("-q,--quiet", quiet, "No progress and no notes; warnings and errors only");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "'ks COMMAND --help' explains a command with an example.\n"
        "Exit status: 0 done, 1 wrong usage or failure, 2 incomplete: some samples or\n"
        "metadata could not be read or stored.");
    kscli::addInfo(app, command);
    kscli::addQuicklook(app, command);
    kscli::addSpectrum(app, command);
    kscli::addStats(app, command);
    kscli::addRoi(app, command);
    kscli::addLibrary(app, command);
    kscli::addResample(app, command);
    kscli::addSmooth(app, command);
    kscli::addUnmix(app, command);
    kscli::addConvert(app, command);
    kscli::addVq(app, command);
    kscli::addTransform(app, command);
    kscli::addLut(app, command);
    kscli::addReflectance(app, command);
    kscli::addModtran(app, command);
    kscli::addSun(app, command);
    kscli::addView(app, command);
    kscli::addBrdf(app, command);
    kscli::addSynth(app, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // help or version
        kscli::printError(kscli::explain(app, e));
        return kFailed;
    }
    kscli::installHandlers(quiet);
    return run(command);
}
