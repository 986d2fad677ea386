// Thread names are thread descriptions; pool threads do not block the exit.
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
const auto getDescription =
    (GetDescriptionFn)(void*)GetProcAddress(GetModuleHandleA("kernel32.dll"), "GetThreadDescription");

std::string description(HANDLE thread) {
    PWSTR wide = nullptr;
    char utf8[512] = "<none>";
    if (SUCCEEDED(getDescription(thread, &wide)) && wide) {
        WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8, sizeof(utf8), nullptr, nullptr);
        LocalFree(wide);
    }
    return utf8;
}

struct Named : core::Thread_Impl<Named> {
    std::string seen;
    Named(const char* name) : core::Thread_Impl<Named>(name, 64 * 1024) {}
    void onRun() { seen = description(GetCurrentThread()) + "|" + core::Thread::getCurrentThreadName(); }
};

TEST(ThreadsWin32, NamesAreThreadDescriptionsAndTheExitDoesNotWaitForPoolThreads) {
    if (!getDescription)
        GTEST_SKIP() << "this Windows has no GetThreadDescription (added in Windows 10 1607)";
    // Longer than Linux allows, and not ASCII: Windows keeps all of it.
    for (const char* name : {"a rather long worker thread name", "W\xC3\xBCrfel \xE2\x82\xAC"}) {
        core::SmartPtr<Named> t(new Named(name));
        ASSERT_TRUE(t->start() && t->join());
        EXPECT_EQ(std::string(name) + "|" + name, t->seen);
    }
    std::thread([] {
        core::Thread::setCurrentThreadName("renamed");
        EXPECT_EQ("renamed", description(GetCurrentThread()));
    }).join();
    // Windows ends the pool's threads before the DLL's static objects go.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((tarso::stream::StreamIOPool::getSingleton(), std::exit(3)), ::testing::ExitedWithCode(3),
                "");
}

} // namespace
