#pragma once
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tmain/core/Object.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/foundation/Callback.h>
#include <tmain/foundation/SmartPtr.h>
#include <unordered_map>
#include <vector>

namespace tarso {
namespace vfs {
class File;
}

namespace core {

/// Writes graphs of Serializable objects to the binary object stream and
/// reads them back. Objects reached twice are written once and referenced
/// afterwards, so shared sub-objects and cycles survive a round trip. Each
/// record carries its type name and length, so readers step over objects
/// they cannot create. Used by one thread at a time.
class TMAIN_API Serializer : public Object {
    TMAIN_TYPE()
public:
    /// Format version: major, minor, release, build.
    struct TMAIN_API Version {
        unsigned char major, minor, release, build;
        /// The record-layout test. Each later clause only checks that the byte
        /// just before it is equal, not all earlier bytes; kept as it is.
        bool operator>(const Version& b) const {
            return major > b.major || (major == b.major && minor > b.minor) ||
                   (minor == b.minor && release > b.release) || (release == b.release && build > b.build);
        }
        bool operator==(const Version& b) const {
            return major == b.major && minor == b.minor && release == b.release && build == b.build;
        }
        /// Byte-by-byte comparison from the left, for the accepted range.
        int compare(const Version& b) const;
        std::string toString() const;
    };
    static const Version VERSION_1_0_0_0;
    static const Version VERSION_1_0_0_1;
    static const Version VERSION_1_0_0_2;

    static constexpr unsigned OID_INVALID = 0xFFFFFFFFu;

    /// The 36-byte stream header.
    struct Header {
        char signature[4];
        Version version;
        unsigned rootCount;
        unsigned totalCount;
        unsigned contentSize;
        unsigned char reserved[16]; ///< reserved[0] is the compression flag
    };

    enum CompressionResult { CR_COMPRESSED = 0, CR_ALREADY_COMPRESSED = 1, CR_FAILED = 2 };

    /// Called by resolvePath(serializer, path, type, out); returning true uses
    /// it up (it is deleted).
    typedef ::core::Callback<bool, Serializer*, const char*, const ::core::Type*, std::string&>
        PathResolveCallback;

    explicit Serializer(ObjectFactory<Object>* factory);
    Serializer(const Serializer& other);
    Serializer& operator=(const Serializer& other);
    ~Serializer() override;

    /// Releases the root objects, clears both identifier maps, zeroes the
    /// next identifier and the total count.
    void reset();

    void addObject(Object* object);
    unsigned getObjectCount() const { return (unsigned)mObjects.size(); }
    Object* getObject(unsigned index) const { return index < mObjects.size() ? mObjects[index] : nullptr; }

    void write(stream::OutputStream* out, bool withHeader);
    void read(stream::InputStream* in, bool withHeader);
    /// Writes the root objects to the file with the given version; a non-zero
    /// level compresses the file afterwards. The stream is built in memory
    /// and written to the file in one piece.
    void write(vfs::File* file, const Version& version, int compressionLevel);
    void read(vfs::File* file);

    /// Writes one record; serialize implementations use it for member objects.
    void writeObject(const Serializable* object, stream::OutputStream* out, bool registerObject);
    /// Reads one record and creates its object, which must be an `expected`
    /// (core::Type::NOTYPE: anything). Null for null records, unknown types
    /// and unresolved references.
    Serializable* readObject(stream::InputStream* in, const ::core::Type& expected);
    /// Reads one record into the given instance.
    Serializable* readObject(stream::InputStream* in, Serializable* instance);
    /// Steps over one record; returns the bytes consumed.
    unsigned skipObject(stream::InputStream* in, Serializable* instance, std::string* typeName,
                        unsigned* dataLength);

    CompressionResult doCompression(vfs::File* file, const char* destination, int level);

    void resolvePath(const char* path, const ::core::Type* type, std::string& out);
    /// Installs a path-resolve callback (copied; replaces any earlier one).
    void setPathResolveCallback(const PathResolveCallback& callback);
    void clearPathResolveCallback();

    const char* getCurrentRootPath() const { return mRootPath.c_str(); }
    void setCurrentRootPath(const char* path) { mRootPath = path ? path : ""; }
    const Version& getVersion() const { return mVersion; }
    /// The version written by write(OutputStream*, ...); reading a header sets it too.
    void setVersion(const Version& v) { mVersion = v; }
    unsigned getTotalObjectCount() const { return mTotalCount; }
    ObjectFactory<Object>* getFactory() const { return mFactory; }

    /// Limit on objects nested inside objects while reading or writing, so
    /// that a hostile stream or a self-referencing unregistered object cannot
    /// exhaust the stack.
    /// Default 512; applications with deeper graphs may raise it.
    static unsigned sMaxNesting;

protected:
    unsigned getNextOID(const Serializable* object);
    unsigned getOID(const Serializable* object) const;
    Serializable* getObjectByID(unsigned id) const;
    Object* createObject(const char* typeName);

private:
    Serializable* readObject(stream::InputStream* in, const ::core::Type& expected, Serializable* instance);
    void readHeader(stream::InputStream* in, Header& header);
    /// Reads a record's tag and header fields; true for "OREF", false for "OCNT".
    bool readRecordHeader(stream::InputStream* in, unsigned& id, unsigned& suid, unsigned& length,
                          const char* unknownTagMessage);
    void writeHeader(stream::OutputStream* out, Header& header, unsigned& totalCountPos,
                     unsigned& contentSizePos);
    void serializeType(const ::core::Type& type, unsigned maxLength, stream::OutputStream* out);
    void deserializeType(char* buffer, unsigned& length, unsigned maxLength, stream::InputStream* in);
    void seekSafe(stream::InputStream* in, unsigned position);
    /// Reads until `size` bytes or the end; returns the count read.
    static unsigned readFully(stream::InputStream* in, void* buffer, unsigned size);
    void seekSafe(stream::InputStream* in, unsigned current, unsigned position);
    /// Notes a record of the stream read() reads; true when it is read for the first time.
    bool enterRecord(const stream::InputStream* in, unsigned start, unsigned dataStart);
    /// Moves to the record's end; refuses to go back from a record read again.
    void leaveRecord(stream::InputStream* in, unsigned start, bool fresh, unsigned now, unsigned end);
    /// Bytes of an "OCNT" record before its data: tag, identifier, SerialUID, length.
    unsigned recordHeaderSize() const;
    void updateMap(unsigned id, Serializable* object);
    void ensureZIPBuffer();
    bool versionInRange(const Version& v) const;

    /// Writes one "OCNT" record header; returns where its length field is.
    unsigned writeRecordHeader(stream::OutputStream* out, const Serializable* object, unsigned id);
    /// Writes the record's data length at lengthPos, `end` being the current position.
    void patchLength(stream::OutputStream* out, unsigned lengthPos, unsigned end);

    std::deque<Object*> mObjects;
    /// The object-to-identifier and identifier-to-object maps (flat tables;
    /// the order of neither is ever observed).
    struct Identifiers;
    std::unique_ptr<Identifiers> mIds;
    unsigned mNextID;
    ObjectFactory<Object>* mFactory;
    unsigned mTotalCount;
    PathResolveCallback* mPathResolve;
    Version mVersion;
    std::string mRootPath;
    std::vector<char> mBuffer;
    /// Objects the factory made during reads: held until reset() so that a
    /// failed read frees what it created.
    std::vector<::core::SmartPtr<Object>> mCreated;
    unsigned mDepth;
    /// The stream read() is reading and the furthest position reached in it.
    const stream::InputStream* mScanStream;
    unsigned mFrontier;
};

} // namespace core
} // namespace tarso
