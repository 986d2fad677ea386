#include <tmain/foundation/Thread.h>

#include <process.h>
#include <windows.h>

namespace core {

struct Thread::Native {
    HANDLE handle;
    unsigned id;
};

struct ThreadEntry {
    static unsigned __stdcall entry(void* arg) {
        static_cast<Thread*>(arg)->run();
        return 0;
    }
};

bool Thread::nativeStart() {
    if (!mNative)
        mNative = new Native();
    // _beginthreadex rather than CreateThread: the C runtime sets up its
    // per-thread state (errno, locale, stdio buffers) for the new thread and
    // frees it when the thread ends. The size is the stack's reservation;
    // 0 takes the executable's default, small values round up to the minimum.
    uintptr_t h = _beginthreadex(nullptr, mStackSize, &ThreadEntry::entry, this,
                                 mStackSize ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, &mNative->id);
    mNative->handle = (HANDLE)h;
    return h != 0;
}

void Thread::nativeFree() {
    if (mNative && mNative->handle)
        CloseHandle(mNative->handle);
    delete mNative;
    mNative = nullptr;
}

bool Thread::nativeWaitEnd(unsigned timeoutMs) {
    // The handle, not the body's event: when the process exits, the system
    // ends every other thread before the DLL's static objects are destroyed,
    // and a pool joining its threads then must not wait for an event that
    // nobody is left to set.
    if (mDone.wait(0) == Event::WAIT_SIGNALED)
        return true;
    return WaitForSingleObject(mNative->handle, timeoutMs == INFINITE_WAIT ? INFINITE : timeoutMs) ==
           WAIT_OBJECT_0;
}

void Thread::nativeJoin() {
    WaitForSingleObject(mNative->handle, INFINITE);
}

void Thread::nativeDetach() {
    // The thread is ending itself: the handle is closed by nativeFree, and the
    // system keeps the thread object until it has really exited.
}

bool Thread::nativeIsCurrent() const {
    return mNative && mStarted.load() && mNative->handle && mNative->id == GetCurrentThreadId();
}

void Thread::sleep(unsigned ms) {
    Sleep(ms);
}

namespace {

// Thread descriptions exist since Windows 10 1607 (and in recent Wine); the
// functions are looked up at run time, so the library still loads without.
typedef HRESULT(WINAPI* SetDescriptionFn)(HANDLE, PCWSTR);
typedef HRESULT(WINAPI* GetDescriptionFn)(HANDLE, PWSTR*);

FARPROC kernelFunction(const char* name) {
    for (const char* module : {"kernel32.dll", "kernelbase.dll"}) {
        if (HMODULE h = GetModuleHandleA(module))
            if (FARPROC f = GetProcAddress(h, name))
                return f;
    }
    return nullptr;
}

SetDescriptionFn setDescription() {
    static const SetDescriptionFn f = (SetDescriptionFn)(void*)kernelFunction("SetThreadDescription");
    return f;
}

GetDescriptionFn getDescription() {
    static const GetDescriptionFn f = (GetDescriptionFn)(void*)kernelFunction("GetThreadDescription");
    return f;
}

// The calling thread's name as last set or read, so that asking for it (the
// logger does, for every message) costs no system call. Plain storage: it
// stays valid while other thread-local destructors still log. Windows keeps
// long names; this cache holds up to 63 bytes of UTF-8.
thread_local char tCurrentName[64];
thread_local bool tCurrentNameKnown = false;

/// Copies at most the cache's size of text, never cutting a UTF-8 sequence.
void remember(const char* name) {
    size_t n = 0;
    while (name && name[n] && n < sizeof(tCurrentName) - 1)
        ++n;
    if (name && name[n])
        while (n > 0 && ((unsigned char)name[n] & 0xC0) == 0x80)
            --n;
    for (size_t i = 0; i < n; ++i)
        tCurrentName[i] = name[i];
    tCurrentName[n] = 0;
    tCurrentNameKnown = true;
}

} // namespace

void Thread::setCurrentThreadName(const char* name) {
    remember(name);
    SetDescriptionFn set = setDescription();
    if (!set)
        return;
    wchar_t wide[sizeof(tCurrentName)];
    int n = MultiByteToWideChar(CP_UTF8, 0, tCurrentName, -1, wide, (int)(sizeof(wide) / sizeof(wide[0])));
    if (n <= 0) // not UTF-8: take the bytes as the ANSI code page's
        n = MultiByteToWideChar(CP_ACP, 0, tCurrentName, -1, wide, (int)(sizeof(wide) / sizeof(wide[0])));
    if (n > 0)
        set(GetCurrentThread(), wide);
}

std::string Thread::getCurrentThreadName() {
    if (!tCurrentNameKnown) {
        GetDescriptionFn get = getDescription();
        PWSTR wide = nullptr;
        if (!get || FAILED(get(GetCurrentThread(), &wide)) || !wide)
            return std::string();
        std::string utf8;
        int n = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
        if (n > 0) {
            utf8.resize((size_t)n);
            n = WideCharToMultiByte(CP_UTF8, 0, wide, -1, &utf8[0], n, nullptr, nullptr);
        }
        LocalFree(wide);
        remember(n > 0 ? utf8.c_str() : "");
    }
    return tCurrentName;
}

} // namespace core
