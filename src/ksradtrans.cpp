// Radiometric transforms: one gain and one offset per band, chained from stored numbers to physical quantities.
#include <kslib/ksradtrans.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>

#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

/// Frees a description list and the texts it already holds.
struct DescListDeleter {
    void operator()(char** list) const {
        for (char** text = list; text != nullptr && *text != nullptr; ++text) std::free(*text);
        std::free(list);
    }
};

const char* describe(int radQuant) {
    constexpr int kRows = sizeof aKSRadQuant / sizeof *aKSRadQuant;
    const char* description = radQuant >= 0 && radQuant < kRows ? aKSRadQuant[radQuant].szDesc : nullptr;
    return description != nullptr ? description : aKSRadQuant[KS_RQ_UNKNOWN].szName;
}

/// What transform i of a chain produces; a chain with gaps knows nothing there.
int quantityOf(const KSDataSet& dataSet, int i) {
    const KSRadTrans* transform = dataSet.papRadTransSeq != nullptr ? dataSet.papRadTransSeq[i] : nullptr;
    return transform != nullptr ? transform->eRadQuant : static_cast<int>(KS_RQ_UNKNOWN);
}

/// What the transforms after number `first` make of a value of band b.
double gainFrom(KSRadTrans* const* chain, int first, int count, int b) {
    double gain = 1.0;
    for (int i = first; i < count; ++i) gain *= static_cast<double>(chain[i]->pafGains[b]);
    return gain;
}

double offsetOf(KSRadTrans* const* chain, int count, int b) {
    double offset = 0.0;
    for (int j = 0; j + 1 < count; ++j) {
        offset += static_cast<double>(chain[j]->pafOffsets[b]) * gainFrom(chain, j + 1, count, b);
    }
    if (count > 0) offset += static_cast<double>(chain[count - 1]->pafOffsets[b]);
    return offset;
}

}  // namespace

extern "C" {

KSRadTrans* KSCreateRadTrans(int nNumGainsOffs) {
    constexpr const char* kLabel = "KSCreateRadTrans()";
    if (nNumGainsOffs < 0) return Debug("%s: nNumGainsOffs < 0\n", kLabel), nullptr;

    Heap<KSRadTrans> transform = allocateZeroed<KSRadTrans>();
    if (!transform) return Debug("%s: pRadTrans == NULL, HMalloc() failed\n", kLabel), nullptr;
    if (nNumGainsOffs == 0) return transform.release();

    Heap<float[]> gains = allocateArray<float>(nNumGainsOffs);
    if (!gains) return Debug("%s: pRadTrans->pafGains == NULL, HMalloc() failed\n", kLabel), nullptr;
    Heap<float[]> offsets = allocateArray<float>(nNumGainsOffs);
    if (!offsets) return Debug("%s: pRadTrans->pafOffsets == NULL, HMalloc() failed\n", kLabel), nullptr;
    transform->pafGains = gains.release();
    transform->pafOffsets = offsets.release();
    return transform.release();
}

void KSFreeRadTrans(KSRadTrans* pRadTrans) {
    if (pRadTrans == nullptr) return;
    std::free(pRadTrans->pafGains);
    std::free(pRadTrans->pafOffsets);
    std::free(pRadTrans);
}

int KSCombRadTrans(KSRadTrans* const* papRadTransSeq, int nNumRadTrans, int nNumBands, KSRadTrans* pRadTrans) {
    constexpr const char* kLabel = "KSCombRadTrans()";
    if (papRadTransSeq == nullptr) return KS_DEBUG_FAIL("%s: papRadTransSeq == NULL\n", kLabel);
    if (pRadTrans == nullptr) return KS_DEBUG_FAIL("%s: pRadTrans == NULL\n", kLabel);
    for (int i = 0; i < nNumRadTrans; ++i) {
        if (papRadTransSeq[i] == nullptr) return KS_DEBUG_FAIL("%s: *(papRadTransSeq + i) == NULL\n", kLabel);
    }
    for (int b = 0; b < nNumBands; ++b) {
        pRadTrans->pafGains[b] = static_cast<float>(gainFrom(papRadTransSeq, 0, nNumRadTrans, b));
        pRadTrans->pafOffsets[b] = static_cast<float>(offsetOf(papRadTransSeq, nNumRadTrans, b));
    }
    return kOk;
}

int KSAddRadTrans(KSDataSet* pDataSet, KSRadTrans* pRadTrans) {
    constexpr const char* kLabel = "KSAddRadTrans()";
    if (pDataSet == nullptr) return KS_DEBUG_FAIL("%s: pDataSet == NULL\n", kLabel);
    if (pRadTrans == nullptr) return KS_DEBUG_FAIL("%s: pRadTrans == NULL\n", kLabel);
    if (pDataSet->nNumRadTrans < 0) return KS_DEBUG_FAIL("%s: pDataSet->nNumRadTrans < 0\n", kLabel);

    // A count of 0 starts a new chain: whatever array the record still points at may not be its own.
    KSRadTrans** old = pDataSet->nNumRadTrans == 0 ? nullptr : pDataSet->papRadTransSeq;
    KSRadTrans** chain = reallocateArray(old, std::int64_t{pDataSet->nNumRadTrans} + 1);
    if (chain == nullptr) {
        return KS_DEBUG_FAIL("%s: pDataSet->papRadTransSeq == NULL, HMalloc or HRealloc failed\n", kLabel);
    }
    chain[pDataSet->nNumRadTrans++] = pRadTrans;
    pDataSet->papRadTransSeq = chain;
    return kOk;
}

int KSDelRadTrans(KSDataSet* pDataSet) {
    constexpr const char* kLabel = "KSDelRadTrans()";
    if (pDataSet == nullptr) return KS_DEBUG_FAIL("%s: pDataSet == NULL\n", kLabel);
    if (pDataSet->nNumRadTrans < 1) {
        if (pDataSet->papRadTransSeq == nullptr) return kOk;
        return KS_DEBUG_FAIL("%s: pDataSet->nNumRadTrans <= 0 && pDataSet->papRadTransSeq != NULL\n", kLabel);
    }
    --pDataSet->nNumRadTrans;
    if (pDataSet->papRadTransSeq != nullptr) KSFreeRadTrans(pDataSet->papRadTransSeq[pDataSet->nNumRadTrans]);
    if (pDataSet->nNumRadTrans == 0) freeAndClear(pDataSet->papRadTransSeq);
    return kOk;
}

int KSRadTransQuantToLev(const KSDataSet* pDataSet, int eRadQuant) {
    constexpr int kNoLevel = -1;
    if (pDataSet == nullptr) {
        IMPError(83, 0, "%s: pDataSet == NULL.\n", "KSRadTransQuantToLev ()");
        return kNoLevel;
    }
    if (eRadQuant == KS_RQ_UNCAL) return 0;
    for (int k = 0; k < pDataSet->nNumRadTrans; ++k) {
        if (quantityOf(*pDataSet, k) == eRadQuant) return k + 1;
    }
    return kNoLevel;
}

char** KSRadTransDescList(const KSDataSet* pDataSet) {
    constexpr const char* kLabel = "KSRadTransDescList()";
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), nullptr;

    const int levels = pDataSet->nNumRadTrans > 0 ? pDataSet->nNumRadTrans : 0;
    Heap<char*[]> array = allocateArray<char*>(std::int64_t{levels} + 2);
    if (!array) return IMPError(83, 0, "%s: ppcRetVal == NULL.\n", kLabel), nullptr;
    array[0] = nullptr;
    std::unique_ptr<char*, DescListDeleter> list(array.release());

    for (int k = 0; k <= levels; ++k) {
        const int quantity = k == 0 ? KS_RQ_UNCAL : quantityOf(*pDataSet, k - 1);
        list.get()[k] = copyText(describe(quantity));
        if (list.get()[k] == nullptr) return nullptr;
        list.get()[k + 1] = nullptr;
    }
    return list.release();
}

}  // extern "C"
