// The parameter file of a linear transform: four matrices, "TF", "TI", "C" and "S", in this order.
#include <kslib/kslt.h>

#include <climits>

#include "kslt/matrixfile.hpp"
#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kWriteLabel = "KSWriteLTP()";
constexpr const char* kReadLabel = "KSReadLTP()";

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// ---- writing ----

int checkWrite(const char* fileName, const MAT* forward, const MAT* inverse, const VEC* ps, const IVEC* pc) {
    if (fileName == nullptr) return KS_FAIL("%s: *szFileName == NULL.\n", kWriteLabel);
    if (forward == nullptr) return KS_FAIL("%s: *pTF == NULL.\n", kWriteLabel);
    if (inverse == nullptr) return KS_FAIL("%s: *pTI == NULL.\n", kWriteLabel);
    if (ps == nullptr) return KS_FAIL("%s: *ps == NULL.\n", kWriteLabel);
    if (pc == nullptr) return KS_FAIL("%s: *pc == NULL.\n", kWriteLabel);
    return kOk;
}

int reportLostS() { return KS_FAIL("%s:  m_save (fp, pS, \"S\") failed\n", kWriteLabel); }

int writeMatrices(std::FILE* file, MAT* forward, MAT* inverse, const VEC& ps, const IVEC& pc) {
    const Matrix s = makeMatrix(1, static_cast<int>(ps.dim));
    if (!s) return KS_FAIL("%s: pS = m_get (1, ps->dim) failed\n", kWriteLabel);
    for (u_int i = 0; i < ps.dim; ++i) s->me[0][i] = ps.ve[i];
    const Matrix c = makeMatrix(1, static_cast<int>(pc.dim));
    if (!c) return KS_FAIL("%s: pC = m_get (1, pc->dim) failed\n", kWriteLabel);
    for (u_int i = 0; i < pc.dim; ++i) c->me[0][i] = static_cast<double>(pc.ive[i]);

    if (!saveMatrix(file, forward, "TF")) return KS_FAIL("%s: m_save (fp, pTF, \"TF\") failed\n", kWriteLabel);
    if (!saveMatrix(file, inverse, "TI")) return KS_FAIL("%s: m_save (fp, pTI, \"TI\") failed\n", kWriteLabel);
    if (!saveMatrix(file, c.get(), "C")) return KS_FAIL("%s: m_save (fp, pC, \"C\") failed\n", kWriteLabel);
    if (!saveMatrix(file, s.get(), "S")) return reportLostS();
    return kOk;
}

// ---- reading ----

/// The whole part of a value; false when no integer can hold it.
bool wholePart(double value, int& whole) {
    if (!(value > static_cast<double>(INT_MIN) - 1.0 && value < static_cast<double>(INT_MAX) + 1.0)) return false;
    whole = static_cast<int>(value);
    return true;
}

int expectName(const NamedMatrix& loaded, const char* expected) {
    if (loaded.isNamed(expected)) return kOk;
    return KS_FAIL("%s: expected %s, got %s\n", kReadLabel, expected, loaded.name.get());
}

struct Parameters {
    NamedMatrix forward;
    NamedMatrix inverse;
    NamedMatrix c;
    NamedMatrix s;
};

int readMatrices(std::FILE* file, Parameters& parameters) {
    if (!loadMatrix(file, parameters.forward)) return KS_FAIL("%s: pTF = m_load (fp, &name) failed\n", kReadLabel);
    if (expectName(parameters.forward, "TF") != kOk) return kFailed;
    if (!loadMatrix(file, parameters.inverse)) return KS_FAIL("%s: pTI = m_load (fp, &name) failed\n", kReadLabel);
    if (expectName(parameters.inverse, "TI") != kOk) return kFailed;
    if (!loadMatrix(file, parameters.c)) return KS_FAIL("%s: pB = m_load (fp, &name) failed\n", kReadLabel);
    if (expectName(parameters.c, "C") != kOk) return kFailed;
    if (!loadMatrix(file, parameters.s)) return KS_FAIL("%s: pS = m_load (fp, &name) failed\n", kReadLabel);
    if (!parameters.s.isNamed("S")) {
        return KS_DEBUG_FAIL("%s: expected %s, got %s\n", kReadLabel, "S", parameters.s.name.get());
    }
    return kOk;
}

}  // namespace

extern "C" {

int KSWriteLTP(const char* szFileName, MAT* pTF, MAT* pTI, VEC* ps, IVEC* pc) {
    if (checkWrite(szFileName, pTF, pTI, ps, pc) != kOk) return kFailed;
    File file(std::fopen(szFileName, "wb"));
    if (!file) return KS_FAIL("%s: failed to open %s for writing\n", kWriteLabel, szFileName);
    if (writeMatrices(file.get(), pTF, pTI, *ps, *pc) != kOk) return kFailed;
    if (std::fclose(file.release()) != 0) return reportLostS();
    return kOk;
}

int KSReadLTP(const char* szFileName, MAT** ppTF, MAT** ppTI, VEC** pps, IVEC** ppc) {
    if (szFileName == nullptr) return KS_FAIL("%s: *szFileName == NULL.\n", kReadLabel);
    const File file(std::fopen(szFileName, "rb"));
    // The file's name stands where the label would: logs are searched for it.
    if (!file) return KS_FAIL("%s: failed to open %s for reading\n", szFileName, "");
    Parameters parameters;
    if (readMatrices(file.get(), parameters) != kOk) return kFailed;

    const MAT& s = *parameters.s.matrix;
    const MAT& c = *parameters.c.matrix;
    Vector ps = makeVector(static_cast<int>(s.n));
    if (!ps) return KS_FAIL("%s: ps = v_get (pS->n) failed\n", kReadLabel);
    for (u_int i = 0; i < s.n; ++i) ps->ve[i] = s.me[0][i];
    IntegerVector pc = makeIntegerVector(static_cast<int>(c.n));
    if (!pc) return KS_FAIL("%s: pc = iv_get (pC->n) failed\n", kReadLabel);
    for (u_int i = 0; i < c.n; ++i) {
        if (!wholePart(c.me[0][i], pc->ive[i])) {
            return KS_FAIL("%s: pC->me[0][%u] (= %g) is outside of valid range\n", kReadLabel, i, c.me[0][i]);
        }
    }

    *ppTF = parameters.forward.matrix.release();
    *ppTI = parameters.inverse.matrix.release();
    *pps = ps.release();
    *ppc = pc.release();
    return kOk;
}

}  // extern "C"
