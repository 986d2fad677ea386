#pragma once
#include <memory>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/platform/ConfigurationStore.h>

namespace tarso {
namespace json {
class JSObject;
}
namespace vfs {
class SimpleFileSystem;
}
namespace platform {

/// A configuration store on disk: each container is a directory holding one
/// JSON file "values" (the container's values as one compact object);
/// sub-containers are sub-directories. Every change reloads the file,
/// applies itself and rewrites the file through a temporary and a rename, so
/// the file on disk is always either the old or the new text, and changes
/// made through several store objects on one container are all kept.
/// Getters read the values held since the last load. Sub-container stores
/// share their root's lock.
class TMAIN_API FileConfigurationStore : public ConfigurationStore {
public:
    /// custom: the path as given; user and system: under Application's
    /// working path, in "user" or "system".
    enum FileLocation { FL_CUSTOM = 0, FL_USER = 1, FL_SYSTEM = 2 };

    FileConfigurationStore(FileLocation location, const char* name, bool create);
    ~FileConfigurationStore() override;

    /// Reloads "values" when it exists. A file that cannot be read or parsed
    /// is logged ("FileConfigurationStore::refresh:failed") and the values
    /// held so far stay.
    void refresh();
    /// Writes the held values; false (logged "FileConfigurationStore::flush:error")
    /// when the file could not be replaced.
    bool flush();
    /// The store's directory.
    const char* getDirectory() const { return mDirectory.c_str(); }

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
    /// A sub-container store on an existing directory, sharing the root's lock.
    FileConfigurationStore(const std::shared_ptr<::core::CriticalSection>& lock,
                           const std::string& directory);
    /// The store that holds the last component of name: this one, or a new
    /// sub-store on the directory before the last '/' (which must exist
    /// unless create). `leaf` receives the last component.
    FileConfigurationStore* storeFor(const char* name, bool create, std::string& leaf,
                                     ::core::SmartPtr<FileConfigurationStore>& holder) const;
    std::string subDirectory(const char* path, bool create) const;
    template <class T> T getNumber(const char* name, T* def, const char* kind) const;
    template <class T> bool setValue(const char* name, T value);
    [[noreturn]] static void cannotGet(const char* name, const char* kind);
    /// Writes text to path through a temporary in the same directory that is
    /// flushed to disk and renamed over path.
    static bool replaceFile(const std::string& path, const std::string& text);

    // Created by the root store, shared by every sub-container store made from it.
    std::shared_ptr<::core::CriticalSection> mLock;
    ::core::SmartPtr<json::JSObject> mValues;
    ::core::SmartPtr<vfs::SimpleFileSystem> mFileSystem;
    std::string mDirectory;
};

} // namespace platform
} // namespace tarso
