/* Mean calibrated value of the good visible bands of an image, read 64 lines at a time.
 * Build: cc visible_mean.c $(pkg-config --cflags --libs kslib) -o visible_mean */
#include <kslib.h>

#include <stdio.h>
#include <string.h>

static int readAll(const KSDataSet *scene, KSWinEx *win, double *pdSum, double *pdCount) {
    for (int line = 0; line < scene->nYSize; line += 64) {
        const int lines = scene->nYSize - line < 64 ? scene->nYSize - line : 64;
        if (lines != win->nYSize && KSResizeWinEx(win, win->nXSize, lines, 1, 1) != 0) return 1;
        win->nYOff = line;
        if (KSReadWinEx(scene, win) != 0) return 1;
        const size_t n = (size_t)win->nNumXSamples * (size_t)win->nNumYSamples * (size_t)win->SampDesc.nNumBands;
        for (size_t i = 0; i < n; ++i) *pdSum += win->pafSamples[i];
        *pdCount += (double)n;
    }
    return 0;
}

int main(int argc, char **argv) {
    const float visible[2] = {400.0f, 700.0f};
    int bands = 0;
    int *bandMap = NULL;
    double sum = 0.0;
    double count = 0.0;
    KSWinEx win;

    if (argc != 2) return fprintf(stderr, "usage: visible_mean CUBE\n"), 1;
    KSDataSet *scene = KSOpen(argv[1], "r");
    if (scene == NULL) return 1;
    if (KSSelectBands(scene, visible, 1, 0, NULL, &bands, &bandMap) != 0 || bands == 0) return 1;

    KSInitWinEx(&win);
    win.nXSize = scene->nXSize;
    win.nYSize = scene->nYSize < 64 ? scene->nYSize : 64;
    win.SampDesc.nXSampleInt = 1;
    win.SampDesc.nYSampleInt = 1;
    win.SampDesc.nNumBands = bands;
    win.nRadTransLev = scene->nNumRadTrans;
    if (KSAllocWinEx(&win) != 0) return 1;
    memcpy(win.SampDesc.panBandMap, bandMap, (size_t)bands * sizeof *bandMap);
    free(bandMap);

    const int failed = readAll(scene, &win, &sum, &count);
    if (!failed) printf("%d bands, mean %g\n", bands, sum / count);
    KSFreeWinEx(&win);
    return KSClose(scene) != 0 || failed;
}
