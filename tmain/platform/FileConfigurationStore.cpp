#include <tmain/platform/FileConfigurationStore.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/json/JSObject.h>
#include <tmain/platform/Application.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/vfs/SimpleFileSystem.h>

namespace tarso {
namespace platform {

namespace {
const char* const VALUES = "values";

// A container path must stay inside the store: no empty, "." or ".." parts.
bool validPath(const char* path) {
    if (!path || !*path)
        return false;
    for (const char* p = path;;) {
        const char* end = strchr(p, '/');
        size_t n = end ? (size_t)(end - p) : strlen(p);
        if (n == 0 || (n == 1 && p[0] == '.') || (n == 2 && p[0] == '.' && p[1] == '.') || memchr(p, '\\', n))
            return false;
        if (!end)
            return true;
        p = end + 1;
    }
}
} // namespace

FileConfigurationStore::FileConfigurationStore(FileLocation location, const char* name, bool create)
    : ConfigurationStore(name, create), mLock(std::make_shared<::core::CriticalSection>()) {
    if (location == FL_CUSTOM)
        mDirectory = name ? name : "";
    else {
        mDirectory = Application::mWorkingPath;
        FileOperations::appendPath(mDirectory, location == FL_SYSTEM ? "system" : "user");
        FileOperations::appendPath(mDirectory, name);
    }
    mFileSystem = new vfs::SimpleFileSystem(mDirectory.c_str());
    std::string values;
    if (!name || mDirectory.empty() ||
        !FileOperations::ensurePath(FileOperations::appendPath(mDirectory, VALUES, values))) {
        mFileSystem = nullptr;
        throw ::core::IllegalArgumentException("FileConfigurationStore:unable to create store at:%s",
                                               name ? name : "(null)");
    }
    logging::Logger::getRootLogger().info("FileConfigurationStore:%s:%s",
                                          location == FL_SYSTEM ? "system" : "user", mDirectory.c_str());
    refresh();
}

FileConfigurationStore::FileConfigurationStore(const std::shared_ptr<::core::CriticalSection>& lock,
                                               const std::string& directory)
    : ConfigurationStore(directory.c_str(), false), mLock(lock), mDirectory(directory) {
    mFileSystem = new vfs::SimpleFileSystem(mDirectory.c_str());
    refresh();
}

FileConfigurationStore::~FileConfigurationStore() {}

void FileConfigurationStore::refresh() {
    ::core::Lock lock(*mLock);
    if (mFileSystem->exists(VALUES)) {
        std::string path;
        try {
            stream::FileInputStream in(FileOperations::appendPath(mDirectory, VALUES, path));
            in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
            ::core::SmartPtr<json::JSObject> values = json::JSObject::parse(&in);
            if (values->getType() != json::JSObject::T_OBJECT)
                throw ::core::Exception("%s holds no JSON object", path.c_str());
            mValues = values;
        } catch (const ::core::Exception& e) {
            logging::Logger::getRootLogger().error("FileConfigurationStore::refresh:failed", &e);
        }
    }
    if (!mValues)
        mValues = new json::JSObject(json::JSObject::T_OBJECT);
}

bool FileConfigurationStore::flush() {
    ::core::Lock lock(*mLock);
    std::string text, path;
    try {
        mValues->dump(text);
    } catch (const ::core::Exception& e) {
        logging::Logger::getRootLogger().error("FileConfigurationStore::flush:error", &e);
        return false;
    }
    if (!replaceFile(FileOperations::appendPath(mDirectory, VALUES, path), text)) {
        logging::Logger::getRootLogger().error("FileConfigurationStore::flush:error");
        return false;
    }
    return true;
}

std::string FileConfigurationStore::subDirectory(const char* path, bool create) const {
    if (!validPath(path))
        throw ::core::IllegalArgumentException("FileConfigurationStore::getContainer:%s does not exist",
                                               path ? path : "(null)");
    std::string dir, values;
    FileOperations::appendPath(mDirectory, path, dir);
    if (FileOperations::isDirectory(dir.c_str()))
        return dir;
    if (!create)
        throw ::core::IllegalArgumentException("FileConfigurationStore::getContainer:%s does not exist",
                                               path);
    if (!FileOperations::ensurePath(FileOperations::appendPath(dir, VALUES, values)))
        throw ::core::IllegalArgumentException("FileConfigurationStore:unable to create store at:%s",
                                               dir.c_str());
    return dir;
}

FileConfigurationStore*
FileConfigurationStore::storeFor(const char* name, bool create, std::string& leaf,
                                 ::core::SmartPtr<FileConfigurationStore>& holder) const {
    const char* slash = name ? strrchr(name, '/') : nullptr;
    if (!slash) {
        leaf = name ? name : "";
        return const_cast<FileConfigurationStore*>(this);
    }
    leaf = slash + 1;
    holder = new FileConfigurationStore(mLock, subDirectory(std::string(name, slash).c_str(), create));
    return holder.get();
}

void FileConfigurationStore::cannotGet(const char* name, const char* kind) {
    throw ::core::Exception("FileConfigurationStore: unable to get parameter %s as %s",
                            name ? name : "(null)", kind);
}

template <class T> T FileConfigurationStore::getNumber(const char* name, T* def, const char* kind) const {
    ::core::Lock lock(*mLock);
    std::string leaf;
    ::core::SmartPtr<FileConfigurationStore> holder;
    json::JSObject* values = storeFor(name, false, leaf, holder)->mValues;
    json::JSObject::Type type = values->getType(leaf.c_str());
    if (type == json::JSObject::T_INTEGER || type == json::JSObject::T_REAL) {
        if (std::is_same<T, float>::value)
            return (T)values->getFloat(leaf.c_str());
        if (std::is_same<T, int>::value)
            return (T)values->getInt(leaf.c_str());
        return (T)values->getLong(leaf.c_str());
    }
    if (!def)
        cannotGet(name, kind);
    return *def;
}

template <class T> bool FileConfigurationStore::setValue(const char* name, T value) {
    if (!name)
        return false;
    ::core::Lock lock(*mLock);
    std::string leaf;
    ::core::SmartPtr<FileConfigurationStore> holder;
    FileConfigurationStore* store = storeFor(name, true, leaf, holder);
    if (leaf.empty())
        return false;
    // Another store object on the same container (a sub-store, the root with
    // a path) may have written since this one loaded: start from the file.
    if (!holder)
        store->refresh();
    store->mValues->set(leaf.c_str(), value);
    if (!store->mValues->hasKey(leaf.c_str())) // an invalid UTF-8 name or text
        return false;
    return store->flush();
}

bool FileConfigurationStore::_getParameterBool(const char* name, bool* def) const {
    ::core::Lock lock(*mLock);
    std::string leaf;
    ::core::SmartPtr<FileConfigurationStore> holder;
    json::JSObject* values = storeFor(name, false, leaf, holder)->mValues;
    if (values->getType(leaf.c_str()) == json::JSObject::T_BOOL)
        return values->getBool(leaf.c_str());
    if (!def)
        cannotGet(name, "bool");
    return *def;
}

int FileConfigurationStore::_getParameterInt(const char* name, int* def) const {
    return getNumber(name, def, "int");
}
long long FileConfigurationStore::_getParameterLong(const char* name, long long* def) const {
    return getNumber(name, def, "long");
}
float FileConfigurationStore::_getParameterFloat(const char* name, float* def) const {
    return getNumber(name, def, "float");
}

const char* FileConfigurationStore::_getParameterString(const char* name, std::string& out,
                                                        const char* def) const {
    ::core::Lock lock(*mLock);
    std::string leaf;
    ::core::SmartPtr<FileConfigurationStore> holder;
    const char* text = storeFor(name, false, leaf, holder)->mValues->getString(leaf.c_str());
    if (text) {
        out = text;
        return out.c_str();
    }
    if (!def)
        cannotGet(name, "string");
    return def;
}

bool FileConfigurationStore::_setParameter(const char* name, bool value) {
    return setValue(name, value);
}
bool FileConfigurationStore::_setParameter(const char* name, int value) {
    return setValue(name, value);
}
bool FileConfigurationStore::_setParameter(const char* name, long long value) {
    return setValue(name, value);
}
bool FileConfigurationStore::_setParameter(const char* name, float value) {
    return setValue(name, value);
}
bool FileConfigurationStore::_setParameter(const char* name, const char* value) {
    return value && !json::JSObject(value).isNull() && setValue(name, value);
}

core::Parameter::ParameterType FileConfigurationStore::_getParameterType(const char* name) {
    ::core::Lock lock(*mLock);
    std::string leaf;
    ::core::SmartPtr<FileConfigurationStore> holder;
    json::JSObject* values;
    try {
        values = storeFor(name, false, leaf, holder)->mValues;
    } catch (const ::core::IllegalArgumentException&) {
        return core::Parameter::PT_NONE; // no such container: no such value
    }
    switch (values->getType(leaf.c_str())) {
    case json::JSObject::T_BOOL:
        return core::Parameter::PT_BOOL;
    case json::JSObject::T_INTEGER: {
        long long v = values->getLong(leaf.c_str());
        return v >= INT_MIN && v <= INT_MAX ? core::Parameter::PT_INT : core::Parameter::PT_LONG;
    }
    case json::JSObject::T_REAL:
        return core::Parameter::PT_FLOAT;
    case json::JSObject::T_STRING:
        return core::Parameter::PT_STRING;
    default:
        return core::Parameter::PT_NONE;
    }
}

namespace {
struct Listing {
    std::string dir;
    std::vector<std::string>* names;
};
void addDirectory(const char* path, void* user) {
    if (FileOperations::isDirectory(path))
        static_cast<Listing*>(user)->names->push_back(FileOperations::getFile(path));
}
} // namespace

void FileConfigurationStore::_list(const char* path, std::vector<std::string>* values,
                                   std::vector<std::string>* containers) const {
    ::core::Lock lock(*mLock);
    ::core::SmartPtr<FileConfigurationStore> holder;
    const FileConfigurationStore* store = this;
    if (path && *path)
        store = holder = new FileConfigurationStore(mLock, subDirectory(path, false));
    if (values)
        for (json::JSObject::JSIterator it = store->mValues->begin(); !it.isEnd(); ++it)
            values->push_back(it.getKey());
    if (containers) {
        Listing listing{store->mDirectory, containers};
        size_t first = containers->size();
        FileOperations::iterateContents(store->mDirectory.c_str(), "*", &listing, addDirectory);
        std::sort(containers->begin() + first, containers->end());
    }
}

ConfigurationStore* FileConfigurationStore::_getContainer(const char* path, bool create) {
    ::core::Lock lock(*mLock);
    return new FileConfigurationStore(mLock, subDirectory(path, create));
}

bool FileConfigurationStore::_remove(const char* name, bool container) {
    ::core::Lock lock(*mLock);
    bool ok = false;
    try {
        if (container) {
            ok = FileOperations::remove(subDirectory(name, false).c_str(), FileOperations::REMOVE_RECURSIVE);
        } else {
            std::string leaf;
            ::core::SmartPtr<FileConfigurationStore> holder;
            FileConfigurationStore* store = storeFor(name, false, leaf, holder);
            if (!holder)
                store->refresh();
            if (store->mValues->hasKey(leaf.c_str())) {
                store->mValues->remove(leaf.c_str());
                ok = store->flush();
            }
        }
    } catch (const ::core::IllegalArgumentException&) {
        ok = false;
    }
    if (!ok)
        logging::Logger::getRootLogger().warn("FileConfigurationStore::remove:failed for %s",
                                              name ? name : "(null)");
    return ok;
}

} // namespace platform
} // namespace tarso
