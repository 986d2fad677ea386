#pragma once
#include <tmain/platform/ConfigurationStore.h>

namespace tarso {
namespace platform {

/// A configuration store in the registry under "Software\\<name>" of the
/// current user or the machine; containers are keys. Every operation opens
/// the key, reads or writes one value and closes it, so other processes'
/// changes are seen at once. bool and int are REG_DWORD, long REG_QWORD,
/// string REG_SZ, float a REG_BINARY of 4 bytes. On Linux the same keys
/// live in a directory tree under the XDG configuration folders.
class TMAIN_API RegistryConfigurationStore : public ConfigurationStore {
public:
    enum RegistryRoot { RR_USER = 0, RR_SYSTEM = 1 };

    /// Opens the key, creating it when asked; failure throws
    /// core::IllegalArgumentException "Unable to open registry key: %s (error 0x%X)\n%s".
    RegistryConfigurationStore(RegistryRoot root, const char* name, bool create);
    ~RegistryConfigurationStore() override;

    /// "Software\\" and the name with '\\' for every '/'.
    const char* getKeyPath() const { return mKeyPath.c_str(); }
    RegistryRoot getRoot() const { return mRoot; }
    /// HKEY_CURRENT_USER or HKEY_LOCAL_MACHINE, as the HKEY value.
    void* getRootKey() const { return mRootKey; }

protected:
    bool _getParameterBool(const char* name, bool* def) const override;
    bool _setParameter(const char* name, bool value) override;
    int _getParameterInt(const char* name, int* def) const override;
    bool _setParameter(const char* name, int value) override;
    long long _getParameterLong(const char* name, long long* def) const override;
    bool _setParameter(const char* name, long long value) override;
    float _getParameterFloat(const char* name, float* def) const override;
    bool _setParameter(const char* name, float value) override;
    const char* _getParameterString(const char* name, std::string& out, const char* def) const override;
    bool _setParameter(const char* name, const char* value) override;
    core::Parameter::ParameterType _getParameterType(const char* name) override;
    void _list(const char* path, std::vector<std::string>* values,
               std::vector<std::string>* containers) const override;
    ConfigurationStore* _getContainer(const char* path, bool create) override;
    bool _remove(const char* name, bool container) override;

private:
    /// The key path of the container part of name (before its last '/') and the value name.
    void split(const char* name, std::string& key, std::string& value) const;
    /// Reads one value; false when the key or value is missing.
    bool read(const char* name, unsigned& type, std::string& data) const;
    bool write(const char* name, unsigned type, const void* data, unsigned size);

    std::string mKeyPath;
    RegistryRoot mRoot;
    void* mRootKey;
};

} // namespace platform
} // namespace tarso
