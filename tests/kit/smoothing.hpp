// Parameters and vectors for tests of smoothing.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "spectra.hpp"

namespace kit {

/// Smoothing parameters with segments and a schema of wavelengths.
class Parms {
public:
    Parms(float width, const std::vector<float>& wlens, const std::vector<std::pair<int, int>>& segments)
        : schema_(schemaOf({}, wlens)), parms_(KSCreateSmoothParms(static_cast<int>(segments.size()))) {
        parms_->fWidth = width;
        parms_->pSTSchema = schema_.get();
        for (std::size_t s = 0; s < segments.size(); ++s) {
            parms_->pnIndex1[s] = segments[s].first;
            parms_->pnIndex2[s] = segments[s].second;
        }
    }
    Parms(const Parms&) = delete;
    Parms& operator=(const Parms&) = delete;
    ~Parms() { KSFreeSmoothParms(parms_); }

    KSSmoothParms* get() { return parms_; }
    KSSmoothParms* operator->() { return parms_; }

private:
    Schema schema_;
    KSSmoothParms* parms_;
};

/// A vector of exactly its values, so that a sanitizer sees what is read or written beside them.
class Values {
public:
    explicit Values(const std::vector<double>& values) : vector_(v_get(static_cast<int>(values.size()))) {
        std::copy(values.begin(), values.end(), vector_->ve);
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;
    ~Values() { v_free(vector_); }

    VEC* get() const { return vector_; }
    std::vector<double> all() const { return {vector_->ve, vector_->ve + vector_->dim}; }

private:
    VEC* vector_;
};

}  // namespace kit
