#pragma once
#include <string>
#include <tmain/core/Parameter.h>
#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/SmartPtr.h>
#include <vector>

namespace tarso {
namespace platform {

/// A hierarchical store of named, typed settings: values (int, 64-bit long,
/// float, bool, string) inside containers, addressed by paths with '/'
/// between container names.
class TMAIN_API ConfigurationStore : public ::core::IRefCount {
public:
    /// The current user's registry store (HKEY_CURRENT_USER\Software\<name>).
    static ConfigurationStore* getUser(const char* name, bool create);
    /// The machine's registry store (HKEY_LOCAL_MACHINE\Software\<name>).
    static ConfigurationStore* getSystem(const char* name, bool create);
    /// A file store rooted at the directory `path`.
    static ConfigurationStore* getCustom(const char* path, bool create);

    ConfigurationStore(const char* name, bool create);
    ~ConfigurationStore() override;

    const char* getName() const { return mName.c_str(); }

    /// Without a default a missing or mistyped value throws.
    int getParameterInt(const char* name) const { return _getParameterInt(name, nullptr); }
    int getParameterInt(const char* name, int def) const { return _getParameterInt(name, &def); }
    long long getParameterLong(const char* name) const { return _getParameterLong(name, nullptr); }
    long long getParameterLong(const char* name, long long def) const {
        return _getParameterLong(name, &def);
    }
    float getParameterFloat(const char* name) const { return _getParameterFloat(name, nullptr); }
    float getParameterFloat(const char* name, float def) const { return _getParameterFloat(name, &def); }
    bool getParameterBool(const char* name) const { return _getParameterBool(name, nullptr); }
    bool getParameterBool(const char* name, bool def) const { return _getParameterBool(name, &def); }
    /// out's text, or def when the value is absent (a null def: throws).
    const char* getParameterString(const char* name, std::string& out, const char* def) const {
        return _getParameterString(name, out, def);
    }

    bool setParameter(const char* name, bool value) { return _setParameter(name, value); }
    bool setParameter(const char* name, int value) { return _setParameter(name, value); }
    bool setParameter(const char* name, long long value) { return _setParameter(name, value); }
    bool setParameter(const char* name, float value) { return _setParameter(name, value); }
    bool setParameter(const char* name, const char* value) { return _setParameter(name, value); }
    /// Stores a bool, int, float, string or long parameter under its name;
    /// false for other kinds.
    bool setParameter(const core::Parameter* parameter);

    /// The stored value as a parameter of its kind; throws core::Exception
    /// "Unknown parameter %s" when there is none.
    ::core::SmartPtr<core::Parameter> getParameter(const char* name);
    core::Parameter::ParameterType getParameterType(const char* name) { return _getParameterType(name); }
    bool hasParameter(const char* name);

    /// A new store for the sub-container; the caller owns it.
    ConfigurationStore* getContainer(const char* name, bool create) { return _getContainer(name, create); }
    /// Removes a value, or with container true a container and all it holds.
    bool remove(const char* name, bool container) { return _remove(name, container); }

    void list(std::vector<std::string>* values, std::vector<std::string>* containers) const {
        _list(nullptr, values, containers);
    }
    void list(const char* path, std::vector<std::string>* values,
              std::vector<std::string>* containers) const {
        _list(path, values, containers);
    }
    void listValues(std::vector<std::string>& values) const { _list(nullptr, &values, nullptr); }
    void listValues(const char* path, std::vector<std::string>& values) const {
        _list(path, &values, nullptr);
    }
    void listContainers(std::vector<std::string>& containers) const { _list(nullptr, nullptr, &containers); }
    void listContainers(const char* path, std::vector<std::string>& containers) const {
        _list(path, nullptr, &containers);
    }

protected:
    virtual bool _getParameterBool(const char* name, bool* def) const = 0;
    virtual bool _setParameter(const char* name, bool value) = 0;
    virtual int _getParameterInt(const char* name, int* def) const = 0;
    virtual bool _setParameter(const char* name, int value) = 0;
    virtual long long _getParameterLong(const char* name, long long* def) const = 0;
    virtual bool _setParameter(const char* name, long long value) = 0;
    virtual float _getParameterFloat(const char* name, float* def) const = 0;
    virtual bool _setParameter(const char* name, float value) = 0;
    virtual const char* _getParameterString(const char* name, std::string& out, const char* def) const = 0;
    virtual bool _setParameter(const char* name, const char* value) = 0;
    /// 0 when absent.
    virtual core::Parameter::ParameterType _getParameterType(const char* name) = 0;
    /// Names directly under path (null or "": this container); either vector may be null.
    virtual void _list(const char* path, std::vector<std::string>* values,
                       std::vector<std::string>* containers) const = 0;
    virtual ConfigurationStore* _getContainer(const char* path, bool create) = 0;
    virtual bool _remove(const char* name, bool container) = 0;

    std::string mName;
};

} // namespace platform
} // namespace tarso
