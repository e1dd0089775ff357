// A layer below SQLite that counts what changes a disk and, at one chosen point, kills the process or fails.
#pragma once

#include <sqlite3.h>

#include <unistd.h>
#include <csignal>

namespace hosttest {

enum class Fault { kNone, kKillBefore, kKillAfter, kKillTorn, kFailOnce, kFailFromHere };

/// While it lives, every SQLite database of the process goes through it.
class FaultVfs {
public:
    FaultVfs(Fault fault, int at, bool mainFileOnly = false) {
        state() = {fault, at, mainFileOnly, 0, sqlite3_vfs_find(nullptr)};
        sqlite3_vfs& below = *state().below;
        vfs_ = below;
        vfs_.zName = "kshost-fault";
        vfs_.pNext = nullptr;
        vfs_.szOsFile = static_cast<int>(sizeof(File)) + below.szOsFile;
        vfs_.xOpen = open;
        vfs_.xDelete = [](sqlite3_vfs*, const char* name, int sync) {
            return changing(false, [=] { return state().below->xDelete(state().below, name, sync); });
        };
        sqlite3_vfs_register(&vfs_, 1);
    }
    ~FaultVfs() { sqlite3_vfs_unregister(&vfs_); }
    FaultVfs(const FaultVfs&) = delete;
    FaultVfs& operator=(const FaultVfs&) = delete;

    /// True when the chosen point was reached.
    bool reached() const { return state().count >= state().at; }

private:
    struct State {
        Fault fault;
        int at;
        bool mainFileOnly;
        int count;
        sqlite3_vfs* below;
    };
    struct File {
        sqlite3_file base;
        bool isMain;
        alignas(sqlite3_int64) char below[1];  // the file of the layer below follows
    };

    static State& state() {
        static State only;
        return only;
    }
    static sqlite3_file* belowOf(sqlite3_file* file) {
        return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file)->below);
    }
    static bool isMain(sqlite3_file* file) { return reinterpret_cast<File*>(file)->isMain; }
    [[noreturn]] static void die() {
        kill(getpid(), SIGKILL);
        for (;;) pause();
    }

    template <class Action>
    static int changing(bool mainFile, Action action) {
        return changing(mainFile, action, action);
    }
    template <class Action, class Half>
    static int changing(bool mainFile, Action action, Half half) {
        State& now = state();
        if (now.mainFileOnly && !mainFile) return action();
        ++now.count;
        const bool here = now.count == now.at;
        if (here && now.fault == Fault::kKillBefore) die();
        if (here && now.fault == Fault::kKillTorn) {
            half();
            die();
        }
        if ((here && now.fault == Fault::kFailOnce) || (now.count >= now.at && now.fault == Fault::kFailFromHere)) {
            return SQLITE_FULL;
        }
        const int code = action();
        if (here && now.fault == Fault::kKillAfter) die();
        return code;
    }

    static int open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
        static const sqlite3_io_methods methods = makeMethods();
        reinterpret_cast<File*>(file)->isMain = (flags & SQLITE_OPEN_MAIN_DB) != 0;
        file->pMethods = nullptr;
        const auto openBelow = [=] {
            return state().below->xOpen(state().below, name, belowOf(file), flags, outFlags);
        };
        const int code = (flags & SQLITE_OPEN_CREATE) != 0 ? changing(isMain(file), openBelow) : openBelow();
        if (code == SQLITE_OK) file->pMethods = &methods;
        return code;
    }

    static sqlite3_io_methods makeMethods() {
        sqlite3_io_methods m = {};
        m.iVersion = 1;
        m.xClose = [](sqlite3_file* f) { return belowOf(f)->pMethods->xClose(belowOf(f)); };
        m.xRead = [](sqlite3_file* f, void* to, int n, sqlite3_int64 at) {
            return belowOf(f)->pMethods->xRead(belowOf(f), to, n, at);
        };
        m.xWrite = [](sqlite3_file* f, const void* from, int n, sqlite3_int64 at) {
            const auto writeFirst = [=](int bytes) {
                return belowOf(f)->pMethods->xWrite(belowOf(f), from, bytes, at);
            };
            return changing(
                isMain(f), [=] { return writeFirst(n); }, [=] { return writeFirst(n / 2); });
        };
        m.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
            return changing(isMain(f), [=] { return belowOf(f)->pMethods->xTruncate(belowOf(f), size); });
        };
        m.xSync = [](sqlite3_file* f, int flags) {
            return changing(isMain(f), [=] { return belowOf(f)->pMethods->xSync(belowOf(f), flags); });
        };
        m.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
            return belowOf(f)->pMethods->xFileSize(belowOf(f), size);
        };
        m.xLock = [](sqlite3_file* f, int level) { return belowOf(f)->pMethods->xLock(belowOf(f), level); };
        m.xUnlock = [](sqlite3_file* f, int level) { return belowOf(f)->pMethods->xUnlock(belowOf(f), level); };
        m.xCheckReservedLock = [](sqlite3_file* f, int* held) {
            return belowOf(f)->pMethods->xCheckReservedLock(belowOf(f), held);
        };
        m.xFileControl = [](sqlite3_file* f, int what, void* with) {
            return belowOf(f)->pMethods->xFileControl(belowOf(f), what, with);
        };
        m.xSectorSize = [](sqlite3_file* f) { return belowOf(f)->pMethods->xSectorSize(belowOf(f)); };
        m.xDeviceCharacteristics = [](sqlite3_file* f) {
            return belowOf(f)->pMethods->xDeviceCharacteristics(belowOf(f));
        };
        return m;
    }

    sqlite3_vfs vfs_;
};

}  // namespace hosttest
