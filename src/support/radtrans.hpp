// Ownership of a radiometric transform.
#pragma once

#include <kslib/ksradtrans.h>

#include <memory>

namespace ks {

struct RadTransDeleter {
    void operator()(KSRadTrans* transform) const { KSFreeRadTrans(transform); }
};
using RadTrans = std::unique_ptr<KSRadTrans, RadTransDeleter>;

}  // namespace ks
