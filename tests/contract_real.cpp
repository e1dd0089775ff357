// The contract suite on the embedded host, in a temporary folder.
#include "contract_host.hpp"

#include <kshost_app.h>

#include "tempfolder.hpp"

namespace contract {
namespace {

std::unique_ptr<kit::TempFolder> folder;

void ignore(void*, int, int, const char*) {}

}  // namespace

std::string freshName(const std::string& name) { return folder->path(name); }

void begin() {
    folder = std::make_unique<kit::TempFolder>();
    KSHostSetErrorHandler(ignore, nullptr);
}

void end() {
    KSHostSetErrorHandler(nullptr, nullptr);
    folder.reset();
}

}  // namespace contract
