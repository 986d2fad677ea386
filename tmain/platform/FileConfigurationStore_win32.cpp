#include <tmain/platform/FileConfigurationStore.h>

#include <windows.h>

namespace tarso {
namespace platform {

// The temporary sits in the same directory and is flushed before it
// replaces the old file. MoveFileA refuses an existing target, so the
// replacement is MoveFileExA with MOVEFILE_REPLACE_EXISTING.
bool FileConfigurationStore::replaceFile(const std::string& path, const std::string& text) {
    std::string dir = path.substr(0, path.find_last_of("/\\") + 1);
    char tmp[MAX_PATH];
    if (!GetTempFileNameA(dir.empty() ? "." : dir.c_str(), "val", 0, tmp))
        return false;
    HANDLE h = CreateFileA(tmp, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE) {
        DeleteFileA(tmp);
        return false;
    }
    bool ok = true;
    for (size_t done = 0; ok && done < text.size();) {
        DWORD chunk = (DWORD)(text.size() - done > 0x10000000 ? 0x10000000 : text.size() - done), n = 0;
        ok = WriteFile(h, text.data() + done, chunk, &n, NULL) && n > 0;
        done += n;
    }
    ok = ok && FlushFileBuffers(h);
    ok = CloseHandle(h) && ok;
    ok = ok && MoveFileExA(tmp, path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    if (!ok)
        DeleteFileA(tmp);
    return ok;
}

} // namespace platform
} // namespace tarso
