#include <tmain/platform/RegistryConfigurationStore.h>

#include <cstdint>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/platform/detail/RegistryKey.h>

namespace tarso {
namespace platform {

using namespace detail;

namespace {
std::string keyPath(const std::string& name) {
    std::string path = name;
    for (char& c : path)
        if (c == '/')
            c = '\\';
    return path;
}

[[noreturn]] void cannotGet(const char* name, const char* kind) {
    throw ::core::Exception("Unable to get parameter %s as %s", name ? name : "(null)", kind);
}

int dwordOf(const std::string& data) {
    unsigned v = 0;
    memcpy(&v, data.data(), 4); // the registry keeps numbers little-endian, as does the host
    return (int)v;
}
} // namespace

RegistryConfigurationStore::RegistryConfigurationStore(RegistryRoot root, const char* name, bool create)
    : ConfigurationStore(name, create), mKeyPath("Software\\" + keyPath(name ? name : "")), mRoot(root),
      // The values of HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE: 32-bit constants
      // sign-extended to a pointer, as the system headers define them.
      mRootKey((void*)(intptr_t)(int32_t)(root == RR_USER ? 0x80000001u : 0x80000002u)) {
    RegistryKey key;
    long err = key.open(mRoot, mKeyPath, create, false);
    if (err != RK_OK)
        throw ::core::IllegalArgumentException("Unable to open registry key: %s (error 0x%X)\n%s",
                                               mKeyPath.c_str(), (unsigned)err,
                                               registryErrorText(err).c_str());
}

RegistryConfigurationStore::~RegistryConfigurationStore() {}

void RegistryConfigurationStore::split(const char* name, std::string& key, std::string& value) const {
    key = mKeyPath;
    const char* slash = name ? strrchr(name, '/') : nullptr;
    if (slash)
        key += "\\" + keyPath(std::string(name, slash));
    value = slash ? slash + 1 : name ? name : "";
}

bool RegistryConfigurationStore::read(const char* name, unsigned& type, std::string& data) const {
    std::string key, value;
    split(name, key, value);
    RegistryKey k;
    return name && k.open(mRoot, key, false, false) == RK_OK && k.query(value.c_str(), type, data) == RK_OK;
}

bool RegistryConfigurationStore::write(const char* name, unsigned type, const void* data, unsigned size) {
    std::string key, value;
    split(name, key, value);
    RegistryKey k;
    return name && k.open(mRoot, key, true, true) == RK_OK && k.set(value.c_str(), type, data, size) == RK_OK;
}

bool RegistryConfigurationStore::_getParameterBool(const char* name, bool* def) const {
    unsigned type;
    std::string data;
    if (read(name, type, data) && type == RK_DWORD && data.size() == 4)
        return dwordOf(data) != 0;
    if (!def)
        cannotGet(name, "bool");
    return *def;
}

int RegistryConfigurationStore::_getParameterInt(const char* name, int* def) const {
    unsigned type;
    std::string data;
    if (read(name, type, data) && type == RK_DWORD && data.size() == 4)
        return dwordOf(data);
    if (!def)
        cannotGet(name, "int");
    return *def;
}

long long RegistryConfigurationStore::_getParameterLong(const char* name, long long* def) const {
    unsigned type;
    std::string data;
    if (read(name, type, data)) {
        if (type == RK_QWORD && data.size() == 8) {
            long long v;
            memcpy(&v, data.data(), 8);
            return v;
        }
        if (type == RK_DWORD && data.size() == 4)
            return dwordOf(data);
    }
    if (!def)
        cannotGet(name, "long");
    return *def;
}

float RegistryConfigurationStore::_getParameterFloat(const char* name, float* def) const {
    unsigned type;
    std::string data;
    if (read(name, type, data) && type == RK_BINARY && data.size() == 4) {
        float f;
        memcpy(&f, data.data(), 4);
        return f;
    }
    if (!def)
        cannotGet(name, "float");
    return *def;
}

const char* RegistryConfigurationStore::_getParameterString(const char* name, std::string& out,
                                                            const char* def) const {
    unsigned type;
    std::string data;
    if (read(name, type, data) && type == RK_SZ) {
        out.assign(data.c_str()); // up to the terminating NUL
        return out.c_str();
    }
    if (!def)
        cannotGet(name, "string");
    return def;
}

bool RegistryConfigurationStore::_setParameter(const char* name, bool value) {
    unsigned v = value ? 1 : 0;
    return write(name, RK_DWORD, &v, 4);
}
bool RegistryConfigurationStore::_setParameter(const char* name, int value) {
    return write(name, RK_DWORD, &value, 4);
}
bool RegistryConfigurationStore::_setParameter(const char* name, long long value) {
    return write(name, RK_QWORD, &value, 8);
}
bool RegistryConfigurationStore::_setParameter(const char* name, float value) {
    return write(name, RK_BINARY, &value, 4);
}
bool RegistryConfigurationStore::_setParameter(const char* name, const char* value) {
    return value && write(name, RK_SZ, value, (unsigned)strlen(value) + 1);
}

core::Parameter::ParameterType RegistryConfigurationStore::_getParameterType(const char* name) {
    unsigned type;
    std::string data;
    if (!read(name, type, data))
        return core::Parameter::PT_NONE;
    switch (type) {
    case RK_DWORD:
        return core::Parameter::PT_INT;
    case RK_QWORD:
        return core::Parameter::PT_LONG;
    case RK_SZ:
        return core::Parameter::PT_STRING;
    case RK_BINARY:
        return data.size() == 4 ? core::Parameter::PT_FLOAT : core::Parameter::PT_NONE;
    default:
        return core::Parameter::PT_NONE;
    }
}

void RegistryConfigurationStore::_list(const char* path, std::vector<std::string>* values,
                                       std::vector<std::string>* containers) const {
    std::string key = mKeyPath;
    if (path && *path)
        key += "\\" + keyPath(path);
    RegistryKey k;
    if (k.open(mRoot, key, false, false) == RK_OK)
        k.enumerate(containers, values);
}

ConfigurationStore* RegistryConfigurationStore::_getContainer(const char* path, bool create) {
    return new RegistryConfigurationStore(mRoot, (mName + "/" + (path ? path : "")).c_str(), create);
}

bool RegistryConfigurationStore::_remove(const char* name, bool container) {
    if (!name || !*name)
        return false;
    std::string key, value;
    split(name, key, value);
    RegistryKey k;
    if (k.open(mRoot, key, false, true) != RK_OK)
        return false;
    return (container ? k.removeKey(value.c_str()) : k.removeValue(value.c_str())) == RK_OK;
}

} // namespace platform
} // namespace tarso
