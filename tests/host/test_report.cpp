// Reports, traps, sorting, memory and progress: the parts of the host that need no file.
#include <csetjmp>
#include <limits>
#include <stdexcept>

#include "hostkit.hpp"
#include "report.hpp"

using hosttest::Reports;

TEST(IMPError, HandsTheExpandedTextToTheHandler) {
    Reports reports;
    IMPError(83, 0, "%s: pDataSet == NULL.\n", "KSClose ()");
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_EQ(reports.all[0].code, 83);
    EXPECT_EQ(reports.all[0].severity, 0);
    EXPECT_EQ(reports.all[0].text, "KSClose (): pDataSet == NULL.\n");
}

TEST(IMPError, KeepsLongTextsWhole) {
    Reports reports;
    const std::string name(5000, 'x');
    IMPError(3, 1, "%s: FILE: %s\n", "KSOpen()", name.c_str());
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_EQ(reports.all[0].text, "KSOpen(): FILE: " + name + "\n");
}

TEST(IMPError, PrintsToStandardErrorWithoutAHandler) {
    testing::internal::CaptureStderr();
    IMPError(83, 0, "%s: no line end", "KSOpen()");
    IMPError(83, 0, "%s: with line end\n", "KSOpen()");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "KSOpen(): no line end\nKSOpen(): with line end\n");
}

TEST(IMPError, ReportsOfTheLibraryAreNotCountedAsHostFailures) {
    Reports reports;
    KSHostResetErrorCount();
    IMPError(83, 0, "%s\n", "KSOpen()");
    kshost::reportNotice("units guessed");
    EXPECT_EQ(KSHostErrorCount(), 0);
    kshost::reportFailure("disk full");
    EXPECT_EQ(KSHostErrorCount(), 1);
    KSHostResetErrorCount();
    EXPECT_EQ(KSHostErrorCount(), 0);
    ASSERT_EQ(reports.all.size(), 3U);
    EXPECT_EQ(reports.all[1].code, 62);
    EXPECT_EQ(reports.all[1].severity, 0);
    EXPECT_EQ(reports.all[2].code, 62);
    EXPECT_EQ(reports.all[2].severity, 1);
}

TEST(IMPErrChar, NamesParameterAndText) {
    Reports reports;
    IMPErrChar(18, 0, "DBIW", "bad window");
    IMPErrChar(18, 0, nullptr, nullptr);
    ASSERT_EQ(reports.all.size(), 2U);
    EXPECT_EQ(reports.all[0].text, "DBIW: bad window\n");
}

TEST(IMPFatal, EndsTheProgramAtTheNextError) {
    EXPECT_EQ(IMPFatal(0), 0);
    EXPECT_EXIT(
        {
            IMPFatal(1);
            IMPError(83, 0, "%s: the end\n", "RLUTOpen ()");
        },
        testing::ExitedWithCode(1), "RLUTOpen \\(\\): the end");
}

TEST(IMPFatal, ReturnsThePreviousSetting) {
    EXPECT_EQ(IMPFatal(1), 0);
    EXPECT_EQ(IMPFatal(0), 1);
    EXPECT_EQ(IMPFatal(0), 0);
}

TEST(Debug, IsSilentUnlessAskedFor) {
    unsetenv("KSHOST_DEBUG");
    testing::internal::CaptureStderr();
    Debug("%s: hidden\n", "KSAddRadTrans()");
    setenv("KSHOST_DEBUG", "1", 1);
    Debug("%s: shown\n", "KSAddRadTrans()");
    unsetenv("KSHOST_DEBUG");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "KSAddRadTrans(): shown\n");
}

TEST(Debug, GoesToItsHandler) {
    std::string seen;
    KSHostSetDebugHandler([](void* user, const char* text) { *static_cast<std::string*>(user) += text; }, &seen);
    Debug("%s: %d\n", "label", 7);
    KSHostSetDebugHandler(nullptr, nullptr);
    EXPECT_EQ(seen, "label: 7\n");
}

TEST(Traps, AJumpReachesTheInnermostAndTakesItDown) {
    static int reached;
    reached = 0;
    ASSERT_NE(IMP_Protect(), nullptr);
    jmp_buf* outer = IMPProtectBuffer();
    if (setjmp(*outer) != 0) {
        reached += 10;
    } else {
        ASSERT_NE(IMP_Protect(), nullptr);
        EXPECT_NE(IMPProtectBuffer(), outer);
        if (setjmp(*IMPProtectBuffer()) != 0) {
            reached += 1;
            EXPECT_EQ(IMPProtectBuffer(), outer);
        } else {
            kshost::abandonIfTrapped();
            FAIL() << "the jump did not happen";
        }
        kshost::abandonIfTrapped();
        FAIL() << "the second jump did not happen";
    }
    EXPECT_EQ(reached, 11);
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
    kshost::abandonIfTrapped();  // nothing armed: comes back
}

TEST(Traps, AreRefusedWhenTooManyAreArmed) {
    int armed = 0;
    while (armed < 1000 && IMP_Protect() != nullptr) ++armed;
    EXPECT_GE(armed, 8);
    EXPECT_LT(armed, 1000);
    for (int i = 0; i < armed; ++i) IMPUnprotect();
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
    IMPUnprotect();  // one too many does no harm
    EXPECT_NE(IMP_Protect(), nullptr);
    IMPUnprotect();
}

TEST(Guarded, TurnsAnExceptionIntoAReportAndTheFailureValue) {
    Reports reports;
    const int result = kshost::guarded("GDBOpen ()", -7, []() -> int { throw std::runtime_error("out of luck"); });
    EXPECT_EQ(result, -7);
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_TRUE(reports.mention("GDBOpen (): out of luck"));
}

TEST(ORV_qsort, SortsInPlace) {
    int values[] = {5, -1, 3, 3, 0};
    ORV_qsort(values, 5, sizeof(int), [](const void* a, const void* b) {
        const int x = *static_cast<const int*>(a), y = *static_cast<const int*>(b);
        return (x > y) - (x < y);
    });
    EXPECT_EQ(std::vector<int>(values, values + 5), (std::vector<int>{-1, 0, 3, 3, 5}));
    ORV_qsort(nullptr, 0, 4, nullptr);
}

TEST(IMPGetMemory, AnswersTheSettingTheEnvironmentOrTheDefault) {
    unsetenv("KSHOST_MEMORY");
    int limited = 0;
    EXPECT_EQ(IMPGetMemory(&limited), 268435456);
    EXPECT_EQ(limited, 1);
    setenv("KSHOST_MEMORY", "1048576", 1);
    EXPECT_EQ(IMPGetMemory(nullptr), 1048576);
    setenv("KSHOST_MEMORY", "99999999999", 1);
    EXPECT_EQ(IMPGetMemory(nullptr), std::numeric_limits<int>::max());
    setenv("KSHOST_MEMORY", "plenty", 1);
    EXPECT_EQ(IMPGetMemory(nullptr), 268435456);
    KSHostSetMemory(4096);
    EXPECT_EQ(IMPGetMemory(nullptr), 4096);
    KSHostSetMemory(0);
    EXPECT_EQ(IMPGetMemory(nullptr), 268435456);
    unsetenv("KSHOST_MEMORY");
}

TEST(IMPCounter, GoesToItsHandlerAndIsSilentWithoutATerminal) {
    testing::internal::CaptureStderr();
    IMPCounter(0, -1.0);
    IMPCounter(0, 0.5);
    IMPCounter(0, 2.0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::vector<double> seen;
    KSHostSetProgressHandler(
        [](void* user, double fraction) { static_cast<std::vector<double>*>(user)->push_back(fraction); }, &seen);
    IMPCounter(0, -1.0);
    IMPCounter(0, 0.25);
    IMPCounter(0, 2.0);
    KSHostSetProgressHandler(nullptr, nullptr);
    EXPECT_EQ(seen, (std::vector<double>{-1.0, 0.25, 2.0}));
}

TEST(VectorQuantizedCubes, AFileHasNoneAndAskingIsNoFailure) {
    Reports reports;
    KSVQubeInfo info = {};
    EXPECT_EQ(VQubeGetInfo(nullptr, &info), 0);
    VQubeCleanUp(nullptr);
    VQubeCleanUp(&info);
    EXPECT_TRUE(reports.all.empty());
}

TEST(VectorQuantizedCubes, CleaningUpFreesTheListsOfACallersDescription) {
    KSVQubeInfo info = {};
    info.nNumVQChans = 2;
    info.panVQChans = static_cast<int*>(std::malloc(2 * sizeof(int)));
    info.papfVQChan = static_cast<HostFile**>(std::calloc(2, sizeof(HostFile*)));
    VQubeCleanUp(&info);
    EXPECT_EQ(info.panVQChans, nullptr);
    EXPECT_EQ(info.papfVQChan, nullptr);
    EXPECT_EQ(info.nNumVQChans, 0);
}

TEST(SegmentsOfNoFile, FailWithOneReportAndJumpToTheTrap) {
    Reports reports;
    EXPECT_EQ(IDBSegCreate(nullptr, "a", "b", 180, 1), 0);
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_TRUE(reports.mention("IDBSegCreate ()"));
    EXPECT_TRUE(reports.mention("no file given"));
    ASSERT_NE(IMP_Protect(), nullptr);
    if (setjmp(*IMPProtectBuffer()) == 0) {
        IDBSegCreate(nullptr, "a", "b", 180, 1);
        FAIL() << "no jump to the armed trap";
    }
    EXPECT_EQ(reports.all.size(), 2U);
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
}
