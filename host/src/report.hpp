// Reports of the host itself. Everything goes through the handlers that an application may set.
#pragma once

#include <string>

namespace kshost {

enum ReportCode {
    kHostFailure = 62,  // a transfer, open or store that the host could not do
};

/// Reports a failure of the host (severity 1) and counts it, so that an application can exit with the right status.
void reportFailure(const std::string& text);
/// Reports something the user should know that is not a failure (severity 0, not counted).
void reportNotice(const std::string& text);
/// After a reported failure: jumps to the armed trap, if there is one. Call it last, with no live C++ object in the
/// frame.
void abandonIfTrapped();

/// Runs a body for an exported function: exceptions become a report and the failure value.
template <class R, class Body>
R guarded(const char* what, R failure, Body body) noexcept;

}  // namespace kshost

#include <exception>
namespace kshost {
template <class R, class Body>
R guarded(const char* what, R failure, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        try {
            reportFailure(std::string(what) + ": " + e.what());
        } catch (...) {
        }
        return failure;
    } catch (...) {
        return failure;
    }
}
}  // namespace kshost
