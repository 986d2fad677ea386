// Thread names as Windows keeps them: thread descriptions, read back with
// GetThreadDescription from the thread itself and from another thread.
#include "../support/TestSupport.h"
#include <cstdlib>
#include <tmain/foundation/Thread.h>
#include <tmain/stream/StreamIOPool.h>
#include <windows.h>

void setEnv(const char* name, const char* value) {
    _putenv_s(name, value ? value : ""); // an empty value removes the variable
}

namespace {

typedef HRESULT(WINAPI* GetDescriptionFn)(HANDLE, PWSTR*);
typedef HRESULT(WINAPI* SetDescriptionFn)(HANDLE, PCWSTR);

FARPROC kernel32(const char* name) {
    return GetProcAddress(GetModuleHandleA("kernel32.dll"), name);
}

/// The description of a thread as UTF-8, or "<none>" when it cannot be read.
std::string description(GetDescriptionFn get, HANDLE thread) {
    PWSTR wide = nullptr;
    if (FAILED(get(thread, &wide)) || !wide)
        return "<none>";
    char utf8[512];
    int n = WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8, sizeof(utf8), nullptr, nullptr);
    LocalFree(wide);
    return n > 0 ? utf8 : "<none>";
}

struct Named : core::Thread_Impl<Named> {
    GetDescriptionFn get;
    std::string seen, cached;
    HANDLE self = nullptr;
    core::Event ready{true, false}, release{true, false};
    Named(const char* name, GetDescriptionFn g) : core::Thread_Impl<Named>(name, 64 * 1024), get(g) {}
    void onRun() {
        seen = description(get, GetCurrentThread());
        cached = core::Thread::getCurrentThreadName();
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        ready.set();
        release.wait();
    }
};

TEST(ThreadsWin32, NamesAreThreadDescriptions) {
    auto get = (GetDescriptionFn)(void*)kernel32("GetThreadDescription");
    auto set = (SetDescriptionFn)(void*)kernel32("SetThreadDescription");
    if (!get || !set)
        GTEST_SKIP() << "this Windows has no GetThreadDescription (added in Windows 10 1607)";
    // Longer than Linux allows, and not ASCII: Windows keeps all of it.
    const char* names[] = {"IOThread", "a rather long worker thread name", "W\xC3\xBCrfel \xE2\x82\xAC"};
    for (const char* name : names) {
        core::SmartPtr<Named> t(new Named(name, get));
        ASSERT_TRUE(t->start());
        ASSERT_EQ(core::Event::WAIT_SIGNALED, t->ready.wait());
        EXPECT_EQ(name, description(get, t->self)) << "read from another thread";
        t->release.set();
        EXPECT_TRUE(t->join());
        CloseHandle(t->self);
        EXPECT_JOINED(std::string(name) + "|" + name + "|", t->seen, t->cached);
    }
    // A name set on a thread the library did not start, and read back uncached
    // by a fresh thread that only asks.
    std::string fresh;
    std::thread([&] {
        set(GetCurrentThread(), L"outside");
        fresh = core::Thread::getCurrentThreadName();
        core::Thread::setCurrentThreadName("renamed");
        fresh += "|" + description(get, GetCurrentThread()) + "|" + core::Thread::getCurrentThreadName();
    }).join();
    EXPECT_EQ("outside|renamed|renamed", fresh);
}

// When the process exits, Windows ends the pool's threads before the DLL's
// static objects go; the pool joining them then must not wait forever.
TEST(ThreadsWin32, ProcessExitsWithPoolThreadsRunning) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            tarso::stream::StreamIOPool::getSingleton();
            std::exit(3);
        },
        ::testing::ExitedWithCode(3), "");
}

} // namespace
