#pragma once
/// The registry primitives under RegistryConfigurationStore: one open key,
/// its values and sub-keys. RegistryKey_win32.cpp calls the Reg* functions;
/// RegistryKey_posix.cpp keeps keys as directories under the XDG
/// configuration folders (HKCU: $XDG_CONFIG_HOME/tmain/registry/HKCU, HKLM:
/// <first of $XDG_CONFIG_DIRS>/tmain/registry/HKLM) with one file per value,
/// names matched without regard to case and kept as first written. Results
/// are Windows error codes (0 success, 2 not found, 5 access denied, ...).

#include <string>
#include <vector>

namespace tarso {
namespace platform {
namespace detail {

enum RegistryType { RK_SZ = 1, RK_BINARY = 3, RK_DWORD = 4, RK_QWORD = 11 };
const long RK_OK = 0;
const long RK_NOT_FOUND = 2;
const long RK_ACCESS_DENIED = 5;

class RegistryKey {
public:
    RegistryKey() = default;
    ~RegistryKey() { close(); }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    /// root 0: the current user, 1: the machine; path with '\\' separators.
    /// write asks for the right to change the key; create implies it.
    long open(int root, const std::string& path, bool create, bool write);
    void close();
    long query(const char* name, unsigned& type, std::string& data) const;
    long set(const char* name, unsigned type, const void* data, unsigned size);
    /// Names of sub-keys and values (either vector may be null).
    long enumerate(std::vector<std::string>* keys, std::vector<std::string>* values) const;
    long removeValue(const char* name);
    /// Deletes the sub-key with all its sub-keys and values.
    long removeKey(const char* name);

private:
    [[maybe_unused]] void* mHandle = nullptr; // Windows: the HKEY
    std::string mPath;                        // Linux: the key's directory
};

/// The system's text for an error code, without a trailing line break.
std::string registryErrorText(long code);

} // namespace detail
} // namespace platform
} // namespace tarso
