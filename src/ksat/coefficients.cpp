// Coefficients of the surface reflectance.
#include <kslib/ksat.h>

#include "support/report.hpp"

using namespace ks;

int KSEvalSRCoeffs(float fA1, float fA2, float fB1, float fB2, float fRefl1, float fRefl2, double* pdCoef1,
                   double* pdCoef2, double* pdCoef3, double* pdCoef4) {
    constexpr double kLeast = 1e-12;
    const double a1 = static_cast<double>(fA1);
    const double a2 = static_cast<double>(fA2);
    const double b1 = static_cast<double>(fB1);
    const double b2 = static_cast<double>(fB2);
    const double r1 = static_cast<double>(fRefl1);
    const double r2 = static_cast<double>(fRefl2);
    const double q = r2 / r1;
    const double denominator = a1 * r1 * q - a2 * r2;
    if (!(denominator >= kLeast)) return kFailed;
    const double c3 = (q * a1 - a2) / denominator;
    *pdCoef3 = c3;
    if (!(r1 >= kLeast)) return kFailed;
    const double c1 = (a1 - a1 * r1 * c3) / r1;
    if (!(r2 * c3 - 1.0 - (r1 * c3 - 1.0) * q >= kLeast)) return kFailed;
    const double p = b1 * r1 * c3;
    const double c4 = b2 * r2 * c3 - p * q;
    *pdCoef1 = c1;
    *pdCoef2 = ((r1 * c3 - 1.0) * c4 - p) / r1;
    *pdCoef4 = c4;
    return kOk;
}
