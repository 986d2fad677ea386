#include <tmain/core/Serializer.h>
#include <tmain/core/detail/IdentifierMaps.h>
#include <tmain/core/detail/LookBackInputStream.h>

#include <cstring>
#include <memory>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/DeflateInputStream.h>
#include <tmain/stream/DeflateOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileSystem.h>
#include <typeinfo>

namespace tarso {
namespace core {

using logging::Logger;
using stream::InputStream;
using stream::OutputStream;
using stream::Stream;

const ::core::Type Serializer::TYPE("tarso::core::Serializer", &Object::TYPE);

unsigned Serializer::sMaxNesting = 512;

const Serializer::Version Serializer::VERSION_1_0_0_0 = {1, 0, 0, 0};
const Serializer::Version Serializer::VERSION_1_0_0_1 = {1, 0, 0, 1};
const Serializer::Version Serializer::VERSION_1_0_0_2 = {1, 0, 0, 2};

static_assert(detail::ObjectToID::NONE == Serializer::OID_INVALID, "one value for no identifier");

namespace {
const unsigned COPY_BUFFER_SIZE = 4096;
const unsigned LOOK_BACK_WINDOW = 1u << 16;
const unsigned MAX_TYPE_NAME = 255;

// 32-bit integers in the stream's byte order (big-endian when `big`).
void putU32(unsigned char* p, unsigned v, bool big) {
    for (int i = 0; i < 4; ++i)
        p[i] = (unsigned char)(big ? v >> (24 - 8 * i) : v >> (8 * i));
}
unsigned getU32(const unsigned char* p, bool big) {
    unsigned v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (unsigned)p[i] << (big ? 24 - 8 * i : 8 * i);
    return v;
}

// Scope counter for the nesting limit.
struct Depth {
    unsigned& d;
    explicit Depth(unsigned& v) : d(v) { ++d; }
    ~Depth() { --d; }
};

// A ByteOutputStream cannot seek to its capacity, which is where the data ends
// when the last write filled the block exactly. One spare byte grows the block
// so that the return to `end` after patching a length works; the stream's size
// is its position, so the spare byte is not part of the output.
void keepEndSeekable(OutputStream* out) {
    stream::ByteOutputStream* bytes = dynamic_cast<stream::ByteOutputStream*>(out);
    if (bytes && bytes->tell() >= bytes->getCapacity()) {
        const char spare = 0;
        bytes->write(&spare, 1, 1);
    }
}
} // namespace

// ------------------------------------------------------------------ Version

int Serializer::Version::compare(const Version& b) const {
    const unsigned char x[4] = {major, minor, release, build};
    const unsigned char y[4] = {b.major, b.minor, b.release, b.build};
    return memcmp(x, y, 4);
}

std::string Serializer::Version::toString() const {
    return ::core::formatMessagef("%d.%d.%d.%d", major, minor, release, build);
}

// ------------------------------------------------------------------ life cycle

struct Serializer::Identifiers {
    detail::IDToObject<Serializable> idToObject;
    /// The object-to-identifier map; entries made while reading wait in
    /// `pending` until something asks for an object's identifier, since a
    /// read rarely does and each entry costs a probe of a large table.
    detail::ObjectToID& objects() {
        if (!pending.empty()) {
            for (const auto& p : pending)
                objectToID.set(p.first, p.second);
            pending.clear();
        }
        return objectToID;
    }
    void enter(unsigned id, Serializable* object) {
        idToObject.set(id, object);
        pending.emplace_back(object, id);
    }
    void clear() {
        idToObject.clear();
        objectToID.clear();
        std::vector<std::pair<const Serializable*, unsigned>>().swap(pending);
    }

private:
    detail::ObjectToID objectToID;
    std::vector<std::pair<const Serializable*, unsigned>> pending;
};

Serializer::Serializer(ObjectFactory<Object>* factory)
    : mIds(new Identifiers()), mNextID(0), mFactory(factory), mTotalCount(0),
      mPathResolve(nullptr), mVersion{0, 0, 0, 0}, mDepth(0), mScanStream(nullptr), mFrontier(0) {}

Serializer::Serializer(const Serializer& other)
    : Object(other), mIds(new Identifiers()), mNextID(0), mFactory(other.mFactory), mTotalCount(0),
      mPathResolve(nullptr), mVersion(other.mVersion), mRootPath(other.mRootPath), mDepth(0),
      mScanStream(nullptr), mFrontier(0) {
    for (Object* o : other.mObjects)
        addObject(o);
    if (other.mPathResolve)
        mPathResolve = new PathResolveCallback(*other.mPathResolve);
}

Serializer& Serializer::operator=(const Serializer& other) {
    if (this != &other) {
        reset();
        mFactory = other.mFactory;
        mVersion = other.mVersion;
        mRootPath = other.mRootPath;
        for (Object* o : other.mObjects)
            addObject(o);
        clearPathResolveCallback();
        if (other.mPathResolve)
            mPathResolve = new PathResolveCallback(*other.mPathResolve);
    }
    return *this;
}

Serializer::~Serializer() {
    reset();
    clearPathResolveCallback();
}

void Serializer::reset() {
    std::deque<Object*> roots;
    roots.swap(mObjects);
    mIds->clear();
    mNextID = 0;
    mTotalCount = 0;
    std::vector<::core::SmartPtr<Object>> created;
    created.swap(mCreated);
    for (Object* o : roots)
        if (o) // addObject(nullptr) is allowed: a null root is written as a null record
            o->decRef();
}

void Serializer::addObject(Object* object) {
    if (object)
        object->addRef();
    mObjects.push_back(object);
}

// ------------------------------------------------------------------ identifiers

unsigned Serializer::getNextOID(const Serializable* object) {
    unsigned id = mNextID++;
    mIds->objects().set(object, id);
    return id;
}

unsigned Serializer::getOID(const Serializable* object) const {
    return mIds->objects().find(object);
}

Serializable* Serializer::getObjectByID(unsigned id) const {
    return mIds->idToObject.find(id);
}

void Serializer::updateMap(unsigned id, Serializable* object) {
    mIds->enter(id, object);
}

Object* Serializer::createObject(const char* typeName) {
    return mFactory ? mFactory->create(typeName) : nullptr;
}

bool Serializer::versionInRange(const Version& v) const {
    return v.compare(VERSION_1_0_0_0) >= 0 && v.compare(VERSION_1_0_0_2) <= 0;
}

void Serializer::ensureZIPBuffer() {
    if (mBuffer.empty())
        mBuffer.resize(COPY_BUFFER_SIZE);
}

// ------------------------------------------------------------------ writing

void Serializer::writeHeader(OutputStream* out, Header& h, unsigned& totalCountPos,
                             unsigned& contentSizePos) {
    checkWrite(out->write(h.signature, 1, 4) == 4, "signature");
    const unsigned char v[4] = {h.version.major, h.version.minor, h.version.release, h.version.build};
    checkWrite(out->write(v, 1, 4) == 4, "version");
    checkWrite(out->write(h.rootCount), "root-level object count");
    totalCountPos = out->tell();
    checkWrite(out->write(h.totalCount), "total object count");
    contentSizePos = out->tell();
    checkWrite(out->write(h.contentSize), "content size");
    checkWrite(out->write(h.reserved, 1, 16) == 16, "reserved");
}

void Serializer::write(OutputStream* out, bool withHeader) {
    mTotalCount = 0;
    unsigned totalCountPos = 0, contentSizePos = 0;
    if (withHeader) {
        Header h;
        memcpy(h.signature, out->getEndianness() != platform::ENDIAN_LITTLE ? "TFBE" : "TFLE", 4);
        h.version = mVersion;
        h.rootCount = (unsigned)mObjects.size();
        h.totalCount = 0;
        h.contentSize = 0;
        memset(h.reserved, 0, sizeof(h.reserved));
        writeHeader(out, h, totalCountPos, contentSizePos);
    }
    for (unsigned i = 0; i < mObjects.size(); ++i) {
        try {
            writeObject(mObjects[i], out, true);
        } catch (const ::core::Exception& e) {
            Logger::mROOT_LOGGER.error("Error writing object #%d to stream [%s@%8X]", &e, i,
                                       getType().getName(), messageAddress());
            throw;
        }
    }
    out->flush();
    if (withHeader) {
        unsigned end = out->tell();
        keepEndSeekable(out);
        out->seek((int)end, Stream::SM_BEGIN);
        out->bookMark();
        out->seek((int)totalCountPos, Stream::SM_BEGIN);
        checkWrite(out->write(mTotalCount), "total object count");
        out->seek((int)contentSizePos, Stream::SM_BEGIN);
        checkWrite(out->write(end - contentSizePos - 20), "content size");
        out->rewind();
        out->flush();
    }
    Logger::mROOT_LOGGER.info("%d root-level objects written successfully to stream (%d total objects)",
                              (int)mObjects.size(), mTotalCount);
}

void Serializer::serializeType(const ::core::Type& type, unsigned maxLength, OutputStream* out) {
    const char* name = type.getName() ? type.getName() : "";
    unsigned length = (unsigned)strlen(name);
    if (length > maxLength)
        throw ::core::IllegalArgumentException(
            "Type name too long ('%s', %d>%d characters). Object stream read aborted", name, length,
            maxLength);
    // Length and characters in one write.
    unsigned char buffer[4 + 1024];
    if (length > sizeof(buffer) - 4) {
        checkWrite(out->write(length) && out->write(name, length), "type name");
        return;
    }
    putU32(buffer, length, out->swaps());
    memcpy(buffer + 4, name, length);
    checkWrite(out->write(buffer, 1, 4 + length) == 4 + length, "type name");
}

unsigned Serializer::writeRecordHeader(OutputStream* out, const Serializable* obj, unsigned id) {
    // Tag, identifier, SerialUID (raw, never swapped) and a zero length in
    // one write; a short write names the first field it cut.
    const bool big = out->swaps();
    const bool withSUID = mVersion > VERSION_1_0_0_0;
    const unsigned suid = obj ? obj->getSUID() : 0;
    unsigned char head[16];
    memcpy(head, "OCNT", 4);
    putU32(head + 4, id, big);
    unsigned size = 8;
    if (withSUID) {
        putU32(head + 8, suid, false);
        size = 12;
    }
    putU32(head + size, 0, big);
    const unsigned start = out->tell();
    const unsigned n = out->write(head, 1, size + 4);
    checkWrite(n >= 4, "OCNT");
    checkWrite(n >= 8, "ObjectID");
    if (withSUID) {
        if (obj && suid == 0)
            Logger::mROOT_LOGGER.warn("Zero SerialVersionUID written for instance '%s'",
                                      obj->getType().getName());
        checkWrite(n >= 12, "SerialUID");
    }
    checkWrite(n == size + 4, "OCNT data length");
    return start + size;
}

void Serializer::patchLength(OutputStream* out, unsigned lengthPos, unsigned end) {
    const unsigned length = end - lengthPos - 4;
    // A memory stream takes the length in place: no seeks.
    if (typeid(*out) == typeid(stream::ByteOutputStream)) {
        unsigned char bytes[4];
        putU32(bytes, length, out->swaps());
        static_cast<stream::ByteOutputStream*>(out)->patch(lengthPos, bytes, 4);
        return;
    }
    keepEndSeekable(out);
    out->seek((int)lengthPos, Stream::SM_BEGIN);
    checkWrite(out->write(length), "OCNT data length");
    out->seek((int)end, Stream::SM_BEGIN);
}

void Serializer::writeObject(const Serializable* obj, OutputStream* out, bool registerObject) {
    unsigned id = OID_INVALID;
    bool reference = false;
    if (obj && registerObject && mDepth < sMaxNesting) {
        // One probe both finds an object written before and enters a new one.
        bool added = false;
        id = mIds->objects().insert(obj, mNextID, added);
        if (added)
            ++mNextID;
        reference = !added;
    } else if (obj) {
        id = getOID(obj);
        reference = id != OID_INVALID;
    }
    if (reference) {
        unsigned char ref[12];
        memcpy(ref, "OREF", 4);
        putU32(ref + 4, id, out->swaps());
        putU32(ref + 8, 0, false);
        checkWrite(out->write(ref, 1, 12) == 12, "OREF");
        ++mTotalCount;
        return;
    }
    // An object written unregistered that reaches itself again would recurse
    // without end.
    if (mDepth >= sMaxNesting)
        throw stream::IOException("Object graph nested deeper than %u objects. Object stream write aborted",
                                  sMaxNesting);
    Depth depth(mDepth);
    const unsigned lengthPos = writeRecordHeader(out, obj, id);
    if (obj) {
        serializeType(obj->getType(), MAX_TYPE_NAME, out);
        obj->serialize(out, this);
        patchLength(out, lengthPos, out->tell());
    }
    ++mTotalCount;
}

// ------------------------------------------------------------------ reading

void Serializer::readHeader(InputStream* in, Header& h) {
    char sig[5] = {0};
    checkRead(in->read(sig, 1, 4) == 4, "signature");
    if (memcmp(sig, "TFLE", 4) == 0)
        in->setEndianness(platform::ENDIAN_LITTLE);
    else if (memcmp(sig, "TFBE", 4) == 0)
        in->setEndianness(platform::ENDIAN_BIG);
    else
        throw ::core::UnsupportedOperationException(
            "Invalid stream signature (expected 'TFLE' or 'TFBE', found '%s'", sig);
    memcpy(h.signature, sig, 4);
    unsigned char v[4];
    checkRead(in->read(v, 1, 4) == 4, "version");
    mVersion = Version{v[0], v[1], v[2], v[3]};
    h.version = mVersion;
    if (!versionInRange(mVersion)) {
        const Version& lo = VERSION_1_0_0_0;
        const Version& hi = VERSION_1_0_0_2;
        throw ::core::UnsupportedOperationException(
            "Stream version mismatch (expected %d.%d.%d.%d-%d.%d.%d.%d, found %d.%d.%d.%d)", lo.major,
            lo.minor, lo.release, lo.build, hi.major, hi.minor, hi.release, hi.build, v[0], v[1], v[2], v[3]);
    }
    checkRead(in->read(h.rootCount), "root-level object count");
    checkRead(in->read(h.totalCount), "total object count");
    checkRead(in->read(h.contentSize), "content size");
    checkRead(in->read(h.reserved, 1, 16) == 16, "reserved");
}

void Serializer::read(InputStream* in, bool withHeader) {
    if (!mFactory)
        throw ::core::IllegalStateException("No object factory set! Read operation aborted");
    reset();
    Header h;
    memset(&h, 0, sizeof(h));
    if (withHeader)
        readHeader(in, h);
    std::unique_ptr<stream::DeflateInputStream> inflater;
    std::unique_ptr<detail::LookBackInputStream> lookBack;
    if (h.reserved[0] == 1) {
        // The content after the header is raw deflate: no zlib header or checksum.
        inflater.reset(new stream::DeflateInputStream(in, false, COPY_BUFFER_SIZE, COPY_BUFFER_SIZE, true));
        inflater->open(Stream::OM_READ | Stream::OM_BINARY);
        // An inflater goes back only by starting over; the window makes the
        // return to the end of a record that read too far cheap.
        lookBack.reset(new detail::LookBackInputStream(inflater.get(), LOOK_BACK_WINDOW));
        lookBack->setEndianness(in->getEndianness());
        in = lookBack.get();
    }
    if (!in->isOpen())
        in->open(Stream::OM_READ | Stream::OM_BINARY);
    // Records of a sound stream are read in stream order; see enterRecord().
    struct ScanScope {
        Serializer& s;
        const InputStream* stream;
        unsigned frontier;
        ScanScope(Serializer& ser, const InputStream* in)
            : s(ser), stream(ser.mScanStream), frontier(ser.mFrontier) {
            s.mScanStream = in;
            s.mFrontier = 0;
        }
        ~ScanScope() {
            s.mScanStream = stream;
            s.mFrontier = frontier;
        }
    } scope(*this, in);
    unsigned kept = 0;
    for (unsigned i = 0; i < h.rootCount; ++i) {
        Serializable* s;
        try {
            s = readObject(in, ::core::Type::NOTYPE, nullptr);
        } catch (const ::core::Exception& e) {
            Logger::mROOT_LOGGER.error("Error reading object #%d from stream", &e, i);
            throw;
        }
        if (!s) {
            Logger::mROOT_LOGGER.warn("NULL object read from stream at index %d!", i);
            continue;
        }
        Object* o = dynamic_cast<Object*>(s);
        if (!o) {
            Logger::mROOT_LOGGER.warn("Non-Object instance read as root-level object (type '%s')!",
                                      s->getType().getName());
            continue;
        }
        addObject(o);
        ++kept;
    }
    Logger::mROOT_LOGGER.info(
        "%d/%d root-level objects read successfully from stream (%d total object references read)", kept,
        h.rootCount, mTotalCount);
    if (inflater)
        inflater->close();
}

void Serializer::deserializeType(char* buffer, unsigned& length, unsigned maxLength, InputStream* in) {
    checkRead(in->read(length), "type name length");
    if (length > maxLength)
        throw ::core::IllegalArgumentException(
            "Type name too long (%d>%d characters). Object stream read aborted", length, maxLength);
    checkRead(length == 0 || in->read(buffer, 1, length) == length, "type name");
    buffer[length] = 0;
}

unsigned Serializer::readFully(InputStream* in, void* buffer, unsigned size) {
    unsigned done = 0;
    while (done < size) {
        unsigned n = in->read(static_cast<char*>(buffer) + done, 1, size - done);
        if (n == 0)
            break;
        done += n;
    }
    return done;
}

void Serializer::seekSafe(InputStream* in, unsigned position) {
    seekSafe(in, in->tell(), position);
}

void Serializer::seekSafe(InputStream* in, unsigned current, unsigned position) {
    if (position == current)
        return;
    if (position < current) {
        in->seek((int)position, Stream::SM_BEGIN);
        return;
    }
    // Never seek forward: compressed and network streams can only be skipped.
    ensureZIPBuffer();
    unsigned remaining = position - current;
    while (remaining > 0) {
        unsigned want = remaining < COPY_BUFFER_SIZE ? remaining : COPY_BUFFER_SIZE;
        unsigned got = in->read(mBuffer.data(), 1, want);
        if (got == 0)
            break;
        remaining -= got;
    }
}

// A record is fresh when it starts at or after the furthest position read()
// has reached in its stream: in a sound stream every record is. An object that
// reads past its own record makes the reader go back to the record's end and
// read the following records again; that is the defined recovery. A record
// read again that sends the reader back once more makes no progress (a length
// running backwards, or records that each over-read into the next, whose work
// would double with every level), so it ends the read. Each record is fresh
// only once, which bounds the re-reading to the nesting depth times the
// stream's length.
bool Serializer::enterRecord(const InputStream* in, unsigned start, unsigned dataStart) {
    if (in != mScanStream)
        return true;
    const bool fresh = start >= mFrontier;
    if (dataStart > mFrontier)
        mFrontier = dataStart;
    return fresh;
}

void Serializer::leaveRecord(InputStream* in, unsigned start, bool fresh, unsigned now, unsigned end) {
    if (in == mScanStream) {
        if (now > mFrontier)
            mFrontier = now;
        if (end < now && !fresh)
            throw stream::IOException("Object record at %8X read twice. Object stream read aborted", start);
    }
    seekSafe(in, now, end);
}

unsigned Serializer::recordHeaderSize() const {
    return mVersion > VERSION_1_0_0_0 ? 16 : 12;
}

bool Serializer::readRecordHeader(InputStream* in, unsigned& id, unsigned& suid, unsigned& length,
                                  const char* unknownTagMessage) {
    // Tag, identifier and the next field in one read, the length of an
    // "OCNT" record with a SerialUID in a second; a short read names the
    // first field it cut, as reading field by field would.
    unsigned char head[16];
    const unsigned n = readFully(in, head, 12);
    char tag[5] = {0};
    memcpy(tag, head, n < 4 ? n : 4);
    checkRead(n >= 4, "OCNT/OREF");
    const bool reference = memcmp(tag, "OREF", 4) == 0;
    if (!reference && memcmp(tag, "OCNT", 4) != 0)
        throw ::core::UnsupportedOperationException(unknownTagMessage, tag);
    ++mTotalCount;
    checkRead(n >= 8, "ObjectID");
    const bool big = in->swaps();
    id = getU32(head + 4, big);
    if (!reference && mVersion > VERSION_1_0_0_0) {
        checkRead(n == 12, "SerialUID");
        suid = getU32(head + 8, false);
        checkRead(readFully(in, head + 12, 4) == 4, "OCNT data length");
        length = getU32(head + 12, big);
    } else {
        checkRead(n == 12, reference ? "OREF data length" : "OCNT data length");
        length = getU32(head + 8, big);
    }
    return reference;
}

Serializable* Serializer::readObject(InputStream* in, const ::core::Type& expected) {
    return readObject(in, expected, nullptr);
}

Serializable* Serializer::readObject(InputStream* in, Serializable* instance) {
    return readObject(in, instance ? instance->getType() : ::core::Type::NOTYPE, instance);
}

Serializable* Serializer::readObject(InputStream* in, const ::core::Type& expected, Serializable* instance) {
    unsigned id = 0, suid = 0, length = 0;
    if (readRecordHeader(in, id, suid, length, "Unknown stream signature '%s'")) {
        Serializable* s = getObjectByID(id);
        if (!s)
            Logger::mROOT_LOGGER.warn("Unresolved object reference (#%8X)", id);
        // Callers cast the result to the expected class: a reference to an
        // object of another class is as wrong as a record of one.
        else if (&expected != &::core::Type::NOTYPE && !s->getType().instanceOf(expected))
            throw ::core::IllegalArgumentException("Invalid object type read (expected '%s', found '%s')",
                                                   expected.getName(), s->getType().getName());
        return s;
    }
    const unsigned p = in->tell();
    if (id == OID_INVALID && length == 0)
        return nullptr;
    const unsigned start = p - recordHeaderSize();
    const bool fresh = enterRecord(in, start, p);
    if (mDepth >= sMaxNesting)
        throw stream::IOException("Object stream nested deeper than %u objects. Object stream read aborted",
                                  sMaxNesting);
    Depth depth(mDepth);
    char typeName[MAX_TYPE_NAME + 1];
    unsigned nameLength = 0;
    deserializeType(typeName, nameLength, MAX_TYPE_NAME, in);
    if (mVersion > VERSION_1_0_0_0 && suid == 0)
        Logger::mROOT_LOGGER.warn("Zero SerialVersionUID read for instance '%s'", typeName);
    bool created = false;
    if (!instance) {
        Object* o = createObject(typeName);
        if (!o) {
            Logger::mROOT_LOGGER.warn(
                "Unable to create object instance for type name '%s'. Skipping object stream read.",
                typeName);
            leaveRecord(in, start, fresh, in->tell(), p + length);
            return nullptr;
        }
        mCreated.emplace_back(o); // freed by reset() unless someone else holds it
        instance = o;
        created = true;
    }
    if (&expected != &::core::Type::NOTYPE && !instance->getType().instanceOf(expected)) {
        if (created)
            mCreated.pop_back();
        throw ::core::IllegalArgumentException("Invalid object type read (expected '%s', found '%s')",
                                               expected.getName(), typeName);
    }
    if (id != OID_INVALID)
        updateMap(id, instance);
    if (mVersion > VERSION_1_0_0_1)
        instance->deserialize(in, this);
    else if (mVersion > VERSION_1_0_0_0)
        instance->deserializeLegacy1(in, this, suid);
    else
        instance->deserializeLegacy0(in, this);
    const unsigned now = in->tell();
    if (now != p + length)
        Logger::mROOT_LOGGER.warn("Stream offset mismatch for object type '%s' (expected %8X, found %8X). "
                                  "Forcing stream position adjustment.",
                                  typeName, p + length, now);
    leaveRecord(in, start, fresh, now, p + length);
    return instance;
}

unsigned Serializer::skipObject(InputStream* in, Serializable* instance, std::string* typeName,
                                unsigned* dataLength) {
    unsigned id = 0, suid = 0, length = 0;
    if (readRecordHeader(in, id, suid, length, "Unable to skip next object: unknown stream signature '%s'")) {
        Serializable* s = getObjectByID(id);
        if (typeName && s)
            *typeName = s->getType().getName();
        if (dataLength)
            *dataLength = 0;
        return 12;
    }
    const unsigned p = in->tell();
    const unsigned start = p - recordHeaderSize();
    const bool fresh = enterRecord(in, start, p);
    if (length > 0) {
        char name[MAX_TYPE_NAME + 1];
        unsigned nameLength = 0;
        deserializeType(name, nameLength, MAX_TYPE_NAME, in);
        if (typeName)
            *typeName = name;
    } else if (typeName) {
        typeName->clear();
    }
    leaveRecord(in, start, fresh, in->tell(), p + length);
    if (dataLength)
        *dataLength = length;
    if (instance && id != OID_INVALID)
        updateMap(id, instance);
    return recordHeaderSize() + length;
}

// ------------------------------------------------------------------ files

void Serializer::write(vfs::File* file, const Version& version, int compressionLevel) {
    if (!versionInRange(version))
        throw ::core::IllegalArgumentException("Unsupported serializer version: %d.%d.%d.%d", version.major,
                                               version.minor, version.release, version.build);
    mVersion = version;
    try {
        std::unique_ptr<OutputStream> out(file->getOutputStream());
        out->open(Stream::OM_WRITE | Stream::OM_TRUNCATE | Stream::OM_BINARY);
        // Built in memory, where record lengths are patched in place, and
        // written with one call: on a file every patch would seek twice, and
        // every seek flushes the file's buffer.
        stream::ByteOutputStream bytes(64u << 10, 1u << 20);
        bytes.setEndianness(out->getEndianness());
        bytes.open(Stream::OM_WRITE | Stream::OM_BINARY);
        write(&bytes, true);
        checkWrite(out->write(bytes.getBytes(), 1, bytes.getSize()) == bytes.getSize(), "data");
        out->close();
    } catch (const ::core::Exception& e) {
        std::string msg = ::core::formatMessagef("Error writing object list to file '%s'", file->getPath());
        throw stream::IOException(msg.c_str(), &e);
    }
    if (compressionLevel != 0 && doCompression(file, nullptr, compressionLevel) == CR_FAILED)
        Logger::mROOT_LOGGER.error("Error compressing file!");
}

void Serializer::read(vfs::File* file) {
    const char* path = file->getPath();
    const char* slash = strrchr(path, '/');
    const char* backslash = strrchr(path, '\\');
    if (backslash > slash)
        slash = backslash;
    mRootPath = slash ? std::string(path, (size_t)(slash - path)) : std::string();
    try {
        std::unique_ptr<InputStream> in(file->getInputStream());
        in->open(Stream::OM_READ | Stream::OM_BINARY);
        read(in.get(), true);
        in->close();
    } catch (const ::core::Exception& e) {
        std::string msg = ::core::formatMessagef("Error reading object list from file '%s'", file->getPath());
        throw stream::IOException(msg.c_str(), &e);
    }
}

Serializer::CompressionResult Serializer::doCompression(vfs::File* file, const char* destination, int level) {
    std::string destPath = destination ? destination : std::string(file->getPath()) + ".z";
    Logger::mROOT_LOGGER.info("Compressing serialized file '%s' into '%s'", file->getPath(),
                              destPath.c_str());
    try {
        vfs::FileSystem* fs = file->getOwner();
        std::unique_ptr<InputStream> in(file->getInputStream());
        in->open(Stream::OM_READ | Stream::OM_BINARY);
        Header h;
        readHeader(in.get(), h);
        if (h.reserved[0] == 1) {
            Logger::mROOT_LOGGER.info("File '%s' is already compressed.", file->getPath());
            in->close();
            return CR_ALREADY_COMPRESSED;
        }
        unsigned sourceSize = file->getSize();
        ::core::SmartPtr<vfs::File> dest(fs->create(destPath.c_str(), true));
        {
            std::unique_ptr<OutputStream> out(dest->getOutputStream());
            out->setEndianness(in->getEndianness());
            out->open(Stream::OM_WRITE | Stream::OM_TRUNCATE | Stream::OM_BINARY);
            h.reserved[0] = 1;
            unsigned a = 0, b = 0;
            writeHeader(out.get(), h, a, b);
            out->flush();
            stream::DeflateOutputStream deflater(out.get(), level, COPY_BUFFER_SIZE, true);
            deflater.open(Stream::OM_WRITE | Stream::OM_BINARY);
            ensureZIPBuffer();
            for (;;) {
                unsigned n = in->read(mBuffer.data(), 1, COPY_BUFFER_SIZE);
                if (n == 0)
                    break;
                checkWrite(deflater.write(mBuffer.data(), 1, n) == n, "data");
            }
            deflater.close(); // finishes the deflate stream and closes `out`
            in->close();
        }
        unsigned destSize = dest->getSize();
        Logger::mROOT_LOGGER.info("File compressed (%d%%)",
                                  sourceSize ? (int)((unsigned long long)destSize * 100 / sourceSize) : 0);
        if (!destination) {
            Logger::mROOT_LOGGER.info("Removing original file '%s'", file->getPath());
            fs->remove(file->getPath(), 0);
            Logger::mROOT_LOGGER.info("Renaming destination file to '%s'", file->getPath());
            if (!fs->rename(destPath.c_str(), file->getPath()))
                throw stream::IOException("Unable to rename '%s' to '%s'", destPath.c_str(), file->getPath());
        }
        return CR_COMPRESSED;
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("Unable to compress file '%s'", &e, file->getPath());
        return CR_FAILED;
    }
}

// ------------------------------------------------------------------ paths

void Serializer::setPathResolveCallback(const PathResolveCallback& callback) {
    clearPathResolveCallback();
    mPathResolve = new PathResolveCallback(callback);
}

void Serializer::clearPathResolveCallback() {
    delete mPathResolve;
    mPathResolve = nullptr;
}

void Serializer::resolvePath(const char* path, const ::core::Type* type, std::string& out) {
    if (mPathResolve && (*mPathResolve)(this, path, type, out)) {
        clearPathResolveCallback(); // one use
        return;
    }
    if (path && path[0] != '/' && !mRootPath.empty()) {
        out = mRootPath;
        out += '/';
        out += path;
        return;
    }
    out = path ? path : "";
}

} // namespace core
} // namespace tarso
