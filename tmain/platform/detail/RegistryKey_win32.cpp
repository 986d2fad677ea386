#include <tmain/platform/detail/RegistryKey.h>

#include <windows.h>

namespace tarso {
namespace platform {
namespace detail {

namespace {
// RegDeleteKeyA refuses a key that still has sub-keys: those go first.
long deleteTree(HKEY parent, const char* name) {
    HKEY key;
    long err = RegOpenKeyExA(parent, name, 0, KEY_READ | KEY_WRITE, &key);
    if (err != ERROR_SUCCESS)
        return err;
    char sub[256];
    for (;;) {
        DWORD len = sizeof sub;
        err = RegEnumKeyExA(key, 0, sub, &len, NULL, NULL, NULL, NULL);
        if (err == ERROR_NO_MORE_ITEMS)
            break;
        if (err == ERROR_SUCCESS)
            err = deleteTree(key, sub);
        if (err != ERROR_SUCCESS) {
            RegCloseKey(key);
            return err;
        }
    }
    RegCloseKey(key);
    return RegDeleteKeyA(parent, name);
}
} // namespace

long RegistryKey::open(int root, const std::string& path, bool create, bool write) {
    close();
    HKEY base = root == 0 ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    HKEY key = NULL;
    // RegCreateKeyA opens an existing key as well, with read and write access.
    long err = create ? RegCreateKeyA(base, path.c_str(), &key)
                      : RegOpenKeyExA(base, path.c_str(), 0, KEY_READ | (write ? KEY_WRITE : 0), &key);
    if (err == ERROR_SUCCESS)
        mHandle = key;
    return err;
}

void RegistryKey::close() {
    if (mHandle)
        RegCloseKey((HKEY)mHandle);
    mHandle = nullptr;
}

long RegistryKey::query(const char* name, unsigned& type, std::string& data) const {
    DWORD t = 0, size = 0;
    long err = RegQueryValueExA((HKEY)mHandle, name, NULL, &t, NULL, &size);
    while (err == ERROR_SUCCESS || err == ERROR_MORE_DATA) {
        data.assign(size, '\0');
        DWORD got = size;
        err = RegQueryValueExA((HKEY)mHandle, name, NULL, &t, size ? (BYTE*)&data[0] : NULL, &got);
        if (err == ERROR_SUCCESS) {
            data.resize(got);
            type = t;
            return ERROR_SUCCESS;
        }
        size = got; // the value grew in between: try again with its new size
    }
    return err;
}

long RegistryKey::set(const char* name, unsigned type, const void* data, unsigned size) {
    return RegSetValueExA((HKEY)mHandle, name, 0, type, (const BYTE*)data, size);
}

long RegistryKey::enumerate(std::vector<std::string>* keys, std::vector<std::string>* values) const {
    DWORD keyCount = 0, keyLen = 0, valueCount = 0, valueLen = 0;
    long err = RegQueryInfoKeyA((HKEY)mHandle, NULL, NULL, NULL, &keyCount, &keyLen, NULL, &valueCount,
                                &valueLen, NULL, NULL, NULL);
    if (err != ERROR_SUCCESS)
        return err;
    std::string buf;
    for (DWORD i = 0; keys && i < keyCount; ++i) {
        buf.assign(keyLen + 1, '\0');
        DWORD len = keyLen + 1;
        if (RegEnumKeyExA((HKEY)mHandle, i, &buf[0], &len, NULL, NULL, NULL, NULL) == ERROR_SUCCESS)
            keys->push_back(buf.substr(0, len));
    }
    for (DWORD i = 0; values && i < valueCount; ++i) {
        buf.assign(valueLen + 1, '\0');
        DWORD len = valueLen + 1;
        if (RegEnumValueA((HKEY)mHandle, i, &buf[0], &len, NULL, NULL, NULL, NULL) == ERROR_SUCCESS)
            values->push_back(buf.substr(0, len));
    }
    return ERROR_SUCCESS;
}

long RegistryKey::removeValue(const char* name) {
    return RegDeleteValueA((HKEY)mHandle, name);
}

long RegistryKey::removeKey(const char* name) {
    return deleteTree((HKEY)mHandle, name);
}

std::string registryErrorText(long code) {
    char* text = NULL;
    DWORD n = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, NULL,
        (DWORD)code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), (LPSTR)&text, 0, NULL);
    std::string s(text ? text : "", n);
    if (text)
        LocalFree(text);
    while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' '))
        s.pop_back();
    return s;
}

} // namespace detail
} // namespace platform
} // namespace tarso
