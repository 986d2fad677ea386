#include <tmain/platform/ConfigurationStore.h>

#include <tmain/foundation/Exception.h>
#include <tmain/platform/FileConfigurationStore.h>
#include <tmain/platform/RegistryConfigurationStore.h>

namespace tarso {
namespace platform {

ConfigurationStore::ConfigurationStore(const char* name, bool) : mName(name ? name : "") {}
ConfigurationStore::~ConfigurationStore() {}

ConfigurationStore* ConfigurationStore::getUser(const char* name, bool create) {
    return new RegistryConfigurationStore(RegistryConfigurationStore::RR_USER, name, create);
}

ConfigurationStore* ConfigurationStore::getSystem(const char* name, bool create) {
    return new RegistryConfigurationStore(RegistryConfigurationStore::RR_SYSTEM, name, create);
}

ConfigurationStore* ConfigurationStore::getCustom(const char* path, bool create) {
    return new FileConfigurationStore(FileConfigurationStore::FL_CUSTOM, path, create);
}

bool ConfigurationStore::setParameter(const core::Parameter* p) {
    if (!p)
        return false;
    switch (p->getValueType()) {
    case core::Parameter::PT_BOOL:
        return _setParameter(p->getName(), (bool)*p);
    case core::Parameter::PT_INT:
        return _setParameter(p->getName(), (int)*p);
    case core::Parameter::PT_FLOAT:
        return _setParameter(p->getName(), (float)*p);
    case core::Parameter::PT_STRING:
        return _setParameter(p->getName(), (const char*)*p);
    case core::Parameter::PT_LONG:
        return _setParameter(p->getName(), (long long)*p);
    default:
        return false;
    }
}

::core::SmartPtr<core::Parameter> ConfigurationStore::getParameter(const char* name) {
    core::Parameter::ParameterType type = name && *name ? _getParameterType(name) : core::Parameter::PT_NONE;
    ::core::SmartPtr<core::Parameter> p = new core::Parameter(name);
    std::string text;
    switch (type) {
    case core::Parameter::PT_BOOL:
        *p = _getParameterBool(name, nullptr);
        break;
    case core::Parameter::PT_INT:
        *p = _getParameterInt(name, nullptr);
        break;
    case core::Parameter::PT_FLOAT:
        *p = _getParameterFloat(name, nullptr);
        break;
    case core::Parameter::PT_STRING:
        *p = _getParameterString(name, text, nullptr);
        break;
    case core::Parameter::PT_LONG:
        *p = _getParameterLong(name, nullptr);
        break;
    default:
        throw ::core::Exception("Unknown parameter %s", name ? name : "(null)");
    }
    return p;
}

bool ConfigurationStore::hasParameter(const char* name) {
    return name && *name && _getParameterType(name) != core::Parameter::PT_NONE;
}

} // namespace platform
} // namespace tarso
