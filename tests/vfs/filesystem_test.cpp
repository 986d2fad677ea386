// Files and file systems on a real temporary directory. stat()/utime() are
// the independent witnesses for times; an in-memory file system stands in
// for files that are not on the local disk.
#include "../support/TestSupport.h"
#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <tmain/foundation/GenericThread.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/vfs/FileAlreadyExistsException.h>
#include <tmain/vfs/FileList.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/FileWrapper.h>
#include <tmain/vfs/SimpleFile.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <tmain/vfs/TemporaryFileSystem.h>
#include <utime.h>

using namespace tarso::vfs;
using tarso::platform::FileOperations;
using tarso::stream::IOException;
using tarso::stream::Stream;
using tmaintest::readFile;
typedef core::SmartPtr<File> FilePtr;
typedef std::set<std::string> Paths;

// Binary contents: report sizes, not bytes (the operands are evaluated again only on failure).
#define EXPECT_BYTES(want, got)                                                                              \
    EXPECT_TRUE(std::string(want) == (got))                                                                  \
        << "contents differ (" << std::string(want).size() << " vs " << std::string(got).size() << " bytes)"

namespace {

// Writes a file, making its directories first.
void put(const std::string& path, const std::string& data) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    tmaintest::writeFile(path, data);
}
void setTimes(const std::string& path, __int64 accessed, __int64 modified) {
    struct utimbuf times = {(time_t)accessed, (time_t)modified};
    ASSERT_EQ(0, utime(path.c_str(), &times)) << path;
}
struct stat statOf(const std::string& path) {
    struct stat st = {};
    EXPECT_EQ(0, ::stat(path.c_str(), &st)) << path;
    return st;
}

// The file's contents, read in one call with room to spare; getSize() must tell their length.
std::string readAll(File* f) {
    std::unique_ptr<tarso::stream::InputStream> in(f->getInputStream());
    in->open(Stream::OM_READ | Stream::OM_BINARY);
    std::string out(f->getSize() + 4096, '\0');
    out.resize(in->read(&out[0], 1, (unsigned)out.size()));
    EXPECT_EQ(f->getSize(), out.size()) << f->getPath();
    return out;
}
void writeAll(File* f, const std::string& data, Stream::EOpenMode mode) {
    std::unique_ptr<tarso::stream::OutputStream> out(f->getOutputStream());
    out->open(mode | Stream::OM_WRITE | Stream::OM_BINARY);
    out->write(data.data(), 1, (unsigned)data.size());
}
Paths paths(const FileList& list) {
    Paths out;
    for (File* f : list)
        out.insert(f->getPath());
    return out;
}

// Takes 5000 bytes at most: a disk that fills up.
class MemOut : public tarso::stream::OutputStream {
public:
    explicit MemOut(std::string& data) : mData(data) {}
    void open(EOpenMode mode) override {
        if (!(mode & OM_APPEND))
            mData.clear();
    }
    void close() override {}
    bool isOpen() const override { return true; }
    bool hasError() const override { return false; }
    using OutputStream::write;
    unsigned write(const void* buffer, unsigned size, unsigned count) override {
        size_t n = std::min<size_t>(size * count, 5000 - mData.size());
        mData.append((const char*)buffer, n);
        return (unsigned)n;
    }
    void flush() override {}
    std::ostream* getSTLStream() override { return nullptr; }
    std::string& mData;
};

// A file of the in-memory file system: its absolute path "mem://..." is not on disk.
class MemFile : public File {
public:
    static inline std::atomic<int> sDestroyed{0};
    MemFile(const char* path, FileSystem* owner, const std::string& data = "")
        : File(path, owner), mData(data) {}
    ~MemFile() override { ++sDestroyed; }
    tarso::stream::InputStream* getInputStream() override {
        return new tarso::stream::ByteInputStream(mData.data(), (unsigned)mData.size(), true);
    }
    tarso::stream::OutputStream* getOutputStream() override { return new MemOut(mData); }
    bool exists() const override { return true; }
    __int64 getLastModified() const override { return 1500000000; }
    __int64 getLastAccessed() const override { return 1500000100; }
    __int64 getCreated() const override { return 1400000000; }
    unsigned getSize() override { return (unsigned)mData.size(); }
    std::string mData;
};

class TestData : public LookupData {
    TMAIN_TYPE()
};
const core::Type TestData::TYPE("vfstest::TestData", &LookupData::TYPE);

// lookup() answers by path: "missing*" is not found, "abort", "boom" and
// "int" throw, anything else is found.
class MemFS : public FileSystem {
public:
    bool exists(const char* path) const override { return strncmp(path, "missing", 7) != 0; }
    bool isContainer(const char*) const override { return false; }
    std::string getAbsolutePath(const char* path) override { return std::string("mem://") + path; }
    std::string getRelativePath(const char* path) override { return path + 6; }
    void lookup(const char*, File*, LookupData*) override {}
    File* lookup(const char* path, LookupData*) override {
        std::string p = path;
        if (p == "abort")
            throw tarso::stream::StreamAbortedException("aborted %s", path);
        if (p == "boom")
            throw core::IllegalStateException("boom at %s", path);
        if (p == "int")
            throw 42; // not an exception of ours
        if (!exists(path))
            throw FileNotFoundException(path);
        return new MemFile(path, this, "data of " + p);
    }
    bool supportsLookupData(const core::Type& type) const override { return type == TestData::TYPE; }
    File* create(const char* path, bool) override { return new MemFile(path, this); }
    void remove(const char*, unsigned) override {}
    void touch(const char*) override {}
    void list(const char*, FileList&) const override {}
    void list(const char*, const char*, FileList&) const override {}
};

struct Disk {
    tmaintest::TempDir dir;
    SimpleFileSystem fs{dir.path().c_str()};
    std::string at(const std::string& rel) const { return dir.path() + "/" + rel; }
};

} // namespace

TEST(VfsStatics, FileNamesExtensionsAndTypes) {
    const char *plain = "a", *p = "a.d/file";
    auto dirOf = [](const char* path) {
        std::string dir = "junk";
        File::getDirectory(path, dir);
        return dir;
    };
    // Pointers into the path; the extension's dot is the last of the whole path, folders included, and
    // belongs to the extension.
    EXPECT_TRUE(File::getFile(plain) == plain && FileSystem::getExtension(p) == p + 1);
    EXPECT_JOINED(
        "c||a/b|.gz||1|1|0|0|", File::getFile("a/b/c"), dirOf("a"), dirOf("a/b/c"),
        FileSystem::getExtension("x.tar.gz"), FileSystem::getExtension("a/file"),
        FileSystem::checkExtension("x.ZIP", ".zip", false), FileSystem::checkExtension("x.ZIP", ".ZIP", true),
        FileSystem::checkExtension("x.ZIP", ".zip", true), FileSystem::checkExtension("x.zip", "zip", false));

    std::string names;
    for (const core::Type* t : {&File::TYPE, &SimpleFile::TYPE, &FileWrapper::TYPE, &FileSystem::TYPE,
                                &SimpleFileSystem::TYPE, &TemporaryFileSystem::TYPE, &LookupData::TYPE,
                                &FileNotFoundException::TYPE, &FileAlreadyExistsException::TYPE})
        names += std::string(t->getName()) + " ";
    EXPECT_EQ("tarso::vfs::File tarso::vfs::SimpleFile tarso::vfs::FileWrapper tarso::vfs::FileSystem "
              "tarso::vfs::SimpleFileSystem tarso::vfs::TemporaryFileSystem tarso::vfs::LookupData "
              "tarso::vfs::FileNotFoundException tarso::vfs::FileAlreadyExistsException ",
              names);
    FileNotFoundException nf("100%s/q"); // a path, never a format
    FileAlreadyExistsException ae("r", &nf);
    EXPECT_STREQ("100%s/q", ae.getCause()->getMessage());
}

TEST(SimpleFileSystemTest, RootsPathsAndBaseDefaults) {
    SimpleFileSystem fs("file:///data/");
    EXPECT_STREQ("/data", fs.getRootPath());
    // Only the last character goes; the "file://" prefix is matched exactly.
    const char* roots[][2] = {{"C:\\dir\\", "C:\\dir"}, {"/x//", "/x/"}, {"FILE:///y", "FILE:///y"}};
    for (auto& r : roots) {
        fs.setRootPath(r[0]);
        EXPECT_STREQ(r[1], fs.getRootPath());
    }
    fs.setRootPath("/root");
    EXPECT_EQ((std::vector<std::string>{"/root/a", "/root/a", "/root\\a", "/root", "/a/b", "/other/a"}),
              (std::vector<std::string>{fs.getAbsolutePath("a"), fs.getAbsolutePath("/a"),
                                        fs.getAbsolutePath("\\a"), fs.getAbsolutePath(nullptr),
                                        fs.getRelativePath("/root/a/b"), fs.getRelativePath("/other/a")}));
    EXPECT_STREQ("/root/d/e/name.txt", FilePtr(fs.create("d/e/name.txt", true))->getAbsolutePath());

    MemFS mem; // what the base classes do on their own
    EXPECT_MESSAGE(core::UnsupportedOperationException, "setRootPath is not available in this filesystem",
                   mem.setRootPath("/"));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "getRootPath is not available in this filesystem",
                   mem.getRootPath());
    core::SmartPtr<TestData> data(new TestData());
    EXPECT_JOINED("0|1|1|1|0|1|1|0|", mem.rename("a", "b"), mem.supports(nullptr), mem.supports(data),
                  fs.supports(nullptr), fs.supports(data), data->instanceOf(LookupData::TYPE),
                  data->instanceOf(data.get()), data->instanceOf((const LookupData*)nullptr));
    MemFile m("m", &mem);
    FileList out(true);
    EXPECT_MESSAGE(core::UnsupportedOperationException, "File 'm' is not a container", m.list(out));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "File 'm' is not a container", m.list("*", out));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "File::asFileSystem()", m.asFileSystem());
    EXPECT_FALSE(m.setLastModified(1) || m.setLastAccessed(1) || m.setCreated(1));
}

TEST(SimpleFileSystemTest, CreateLookupStreamsAndAsFileSystem) {
    Disk d;
    EXPECT_MESSAGE(FileNotFoundException, "nope/x.txt", d.fs.lookup("nope/x.txt"));
    put(d.at("have.txt"), "12345");
    FilePtr have(d.fs.lookup("have.txt"));
    EXPECT_EQ("12345", readAll(have));
    EXPECT_MESSAGE(FileNotFoundException, "gone", d.fs.lookup("gone", have.get(), nullptr));
    const std::string reaimed = have->getAbsolutePath(); // before the test
    d.fs.lookup("have.txt", have.get(), nullptr);
    EXPECT_JOINED(d.at("gone") + "|have.txt|", reaimed, have->getPath());

    EXPECT_MESSAGE(FileAlreadyExistsException, "have.txt", d.fs.create("have.txt", false));
    FilePtr again(d.fs.create("have.txt", true));
    EXPECT_EQ("12345", readFile(d.at("have.txt"))); // create writes nothing
    FilePtr fresh(d.fs.create("new/deeper/f.bin", false));
    EXPECT_FALSE(d.fs.exists("new"));
    std::string bytes = tmaintest::randomBytes(9000, 7);
    writeAll(fresh, bytes, Stream::OM_TRUNCATE); // the output stream makes the directories
    EXPECT_BYTES(bytes, readFile(d.at("new/deeper/f.bin")));
    EXPECT_EQ(9000u, fresh->getSize());

    FilePtr missing(d.fs.create("missing", true)); // unreadable times are 0, not errors
    EXPECT_TRUE(missing->getSize() == 0 && missing->getLastModified() == 0 &&
                missing->getLastAccessed() == 0 && missing->getCreated() == 0);
    put(d.at("plainfile"), "x"); // a file where a directory is needed
    FilePtr blocked(d.fs.create("plainfile/sub/f", true));
    EXPECT_MESSAGE(IOException, "Unable to create directory for path", blocked->getOutputStream());

    core::SmartPtr<FileSystem> sub(FilePtr(d.fs.lookup("new"))->asFileSystem());
    EXPECT_EQ(d.at("new"), sub->getRootPath());
    EXPECT_EQ(9000u, FilePtr(sub->lookup("deeper/f.bin"))->getSize());
    EXPECT_MESSAGE(core::IllegalArgumentException,
                   "Unable to resolve FileSystem for a non-container file (" + d.at("new/deeper/f.bin") + ")",
                   fresh->asFileSystem());
}

TEST(SimpleFileSystemTest, ListRemoveTouchRenameAndTimes) {
    Disk d;
    for (const char* n : {"a.txt", "b.txt", "abc", "axc", "abbc", "c.dat", "sub/x.txt", "sub/deep/y"})
        put(d.at(n), n);
    std::unique_ptr<FileList> txt(d.fs.list("", "*.txt"));
    EXPECT_TRUE(txt->ownsFiles());
    EXPECT_EQ((Paths{"/a.txt", "/b.txt"}), paths(*txt)); // relative to the root, so with a leading "/"
    FileList q(true), subList(true), subTxt(true);
    d.fs.list("", "a?c", q);
    EXPECT_EQ((Paths{"/abc", "/axc"}), paths(q));
    EXPECT_EQ(7u, std::unique_ptr<FileList>(d.fs.list(""))->size());
    FilePtr sub(d.fs.lookup("sub"));
    sub->list(subList);
    EXPECT_EQ((Paths{"/sub/x.txt", "/sub/deep"}), paths(subList));
    sub->list("*.txt", subTxt);
    ASSERT_EQ(1u, subTxt.size());
    EXPECT_EQ("sub/x.txt", readAll(subTxt[0])); // listed files open where they are

    EXPECT_MESSAGE(FileNotFoundException, "nothing", d.fs.remove("nothing", 0));
    EXPECT_MESSAGE(IOException, "Could not delete file '" + d.at("sub") + "'", d.fs.remove("sub", 0));
    EXPECT_TRUE(d.fs.exists("sub/deep/y"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "Invalid directory: a.txt", d.fs.removeContents("a.txt"));
    d.fs.removeContents("sub");
    EXPECT_TRUE(d.fs.isContainer("sub") && FileOperations::isDirectoryEmpty(d.at("sub").c_str()));
    d.fs.remove("abc", 0);
    put(d.at("sub/deep/z"), "z");
    d.fs.remove("sub", 1);
    EXPECT_FALSE(d.fs.exists("abc") || d.fs.exists("sub"));

    setTimes(d.at("c.dat"), 1000000000, 1000000000);
    d.fs.touch("c.dat");
    EXPECT_GT(statOf(d.at("c.dat")).st_mtime, 1000000000);
    EXPECT_MESSAGE(FileNotFoundException, "absent", d.fs.touch("absent"));
    EXPECT_MESSAGE(IOException, "Could not touch file '" + d.at("absent") + "'",
                   SimpleFileSystem::_setTime(d.at("absent").c_str()));

    EXPECT_FALSE(d.fs.rename("absent", "b"));
    EXPECT_TRUE(d.fs.rename("a.txt", "moved.txt"));
    EXPECT_TRUE(readFile(d.at("moved.txt")) == "a.txt" && !d.fs.exists("a.txt"));
    EXPECT_FALSE(d.fs.rename("moved.txt", "b.txt")); // the target exists
    EXPECT_EQ("b.txt", readFile(d.at("b.txt")));
}

TEST(FileSystemCopy, ContainersAndFileFlags) {
    Disk src, dst;
    put(src.at("tree/a.txt"), "A");
    put(src.at("tree/sub/b.txt"), "B");
    std::string big = tmaintest::randomBytes(20000, 3);
    put(src.at("tree/sub/deeper/c.bin"), big);
    FilePtr tree(src.fs.lookup("tree"));

    EXPECT_EQ(nullptr, dst.fs.copy(tree, FileSystem::COPY_OVERWRITE, nullptr));
    FilePtr given(dst.fs.create("given", true));
    EXPECT_EQ(given.get(), dst.fs.copy(tree, FileSystem::COPY_OVERWRITE, given));
    EXPECT_TRUE(FileOperations::isDirectoryEmpty(dst.dir.path().c_str())); // nothing created
    EXPECT_STREQ("tree", FilePtr(dst.fs.copy(tree, FileSystem::COPY_DEEP, nullptr))->getPath());
    EXPECT_BYTES("A|B|" + big, readFile(dst.at("tree/a.txt")) + "|" + readFile(dst.at("tree/sub/b.txt")) +
                                   "|" + readFile(dst.at("tree/sub/deeper/c.bin")));
    put(src.at("tree/a.txt"), "A2");
    EXPECT_EQ(given.get(), dst.fs.copy(tree, FileSystem::COPY_DEEP, given));
    EXPECT_EQ("A", readFile(dst.at("tree/a.txt"))); // the flags reach the children
    EXPECT_EQ(given.get(), dst.fs.copy(tree, FileSystem::COPY_DEEP | FileSystem::COPY_OVERWRITE, given));
    EXPECT_EQ("A2", readFile(dst.at("tree/a.txt")));
    EXPECT_FALSE(dst.fs.exists("given"));

    std::string v1 = tmaintest::randomBytes(6000, 1), v2 = tmaintest::randomBytes(5000, 2);
    const std::string from = src.at("d/f.bin"), to = dst.at("d/f.bin");
    put(from, v1);
    setTimes(from, 1600000500, 1600000000);
    FilePtr s(src.fs.lookup("d/f.bin"));
    EXPECT_EQ(&dst.fs, FilePtr(dst.fs.copy(s, 0, nullptr))->getOwner());
    // The source's times, its access time as it stands after being read.
    EXPECT_EQ(std::make_pair((time_t)1600000000, statOf(from).st_atime),
              std::make_pair(statOf(to).st_mtime, statOf(to).st_atime));
    EXPECT_BYTES(v1, readFile(to));
    MemFS mem; // takes 5000 bytes: the last write comes up short, the copy fails and nothing leaks
    EXPECT_MESSAGE(IOException, "Error copying file (write count!=read count)",
                   mem.copy(s, FileSystem::COPY_OVERWRITE, nullptr));

    put(from, v2);
    setTimes(from, 1600000500, 1600000000);
    FilePtr(dst.fs.copy(s, 0, nullptr));
    EXPECT_BYTES(v1, readFile(to)); // exists, no overwrite
    FilePtr(dst.fs.copy(s, FileSystem::COPY_OVERWRITE, nullptr));
    EXPECT_BYTES(v2, readFile(to));

    // Only when newer: equal and older sources copy nothing, a newer one does.
    put(to, "OLD");
    FilePtr target(dst.fs.lookup("d/f.bin"));
    for (__int64 dstTime : {1600000000LL, 1600000001LL, 1599999999LL}) {
        setTimes(to, 1600000000, dstTime);
        EXPECT_EQ(target.get(), dst.fs.copy(s, FileSystem::COPY_IF_NEWER, target));
        EXPECT_BYTES(dstTime < 1600000000 ? v2 : "OLD", readFile(to));
        EXPECT_EQ(std::max<__int64>(dstTime, 1600000000), statOf(to).st_mtime); // a skipped copy keeps times
    }
    put(to, "HEAD");
    FilePtr(dst.fs.copy(s, FileSystem::COPY_APPEND, nullptr));
    EXPECT_BYTES("HEAD" + v2, readFile(to));

    FilePtr elsewhere(dst.fs.create("other/name", true)); // any path of this file system
    EXPECT_EQ(elsewhere.get(), dst.fs.copy(s, 0, elsewhere));
    EXPECT_BYTES(v2, readFile(dst.at("other/name")));
    EXPECT_MESSAGE(core::IllegalArgumentException, "Destination file must belong to this file system",
                   dst.fs.copy(s, 1, s));
    FilePtr exact(mem.copy(s, FileSystem::COPY_OVERWRITE, nullptr));
    EXPECT_BYTES(v2, static_cast<MemFile*>(exact.get())->mData);
}

TEST(FileListTest, OwnershipContainsAndMerge) {
    MemFS mem;
    MemFile::sDestroyed = 0;
    {
        FileList owning(true);
        for (const char* name : {"x", "", "y"})
            owning.add(*name ? new MemFile(name, &mem) : nullptr);
        FileList copy(owning); // shares the files
        owning.clear();
        EXPECT_TRUE(MemFile::sDestroyed == 0 && copy.size() == 3u);
    }
    EXPECT_EQ(2, MemFile::sDestroyed.load());

    FilePtr x(new MemFile("x", &mem)), y(new MemFile("y", &mem)), z(new MemFile("z", &mem));
    FilePtr upper(new MemFile("X", &mem));
    {
        FileList a(false), b(false), c(false);
        for (File* f : {x.get(), y.get()})
            a.add(f);
        for (File* f : {y.get(), upper.get(), (File*)nullptr, z.get()})
            b.add(f);
        EXPECT_JOINED("1|1|0|0|0|", a.contains("x"), b.contains(z.get()), a.contains("X"), a.contains("x "),
                      b.contains((const File*)nullptr));
        a.merge(b);
        ASSERT_EQ(5u, a.size());
        EXPECT_TRUE(a[2] == upper.get() && a[3] == nullptr && a[4] == z.get());
        a.merge(a);
        EXPECT_EQ(6u, a.size()); // only the null entry comes again
        c.add(x);
        c.merge(c);
        EXPECT_EQ(1u, c.size());
    }
    EXPECT_EQ(1, x->getRefCount()); // borrowing lists leave the count alone
    EXPECT_EQ(2, MemFile::sDestroyed.load());
}

TEST(FileWrapperTest, ForwardsAndReportsDestruction) {
    Disk d;
    const std::string path = d.at("dir/w.txt");
    put(path, "wrapped");
    int calls = 0, destroyedAtCall = -1;
    File* seen = nullptr;
    FileWrapper::EventCallback cb([&](FileWrapper::FileEvent e, File* f) {
        ++calls;
        EXPECT_EQ(2, (int)e);
        seen = f;
        destroyedAtCall = MemFile::sDestroyed.load();
    });

    FilePtr inner(d.fs.lookup("dir/w.txt"));
    {
        FilePtr w(new FileWrapper(inner.get(), 2, cb));
        EXPECT_TRUE(w->exists() && !w->isContainer() && readAll(w) == "wrapped");
        writeAll(w, "+", Stream::OM_APPEND);
        EXPECT_EQ("wrapped+", readFile(path));
        EXPECT_TRUE(w->setLastModified(1300000000) && w->setLastAccessed(1300000100));
        EXPECT_EQ(std::make_tuple(1300000000LL, 1300000100LL, inner->getCreated()),
                  std::make_tuple(w->getLastModified(), w->getLastAccessed(), w->getCreated()));
        EXPECT_THROW(w->asFileSystem(), core::IllegalArgumentException);
        EXPECT_EQ(0, calls);
    }
    EXPECT_TRUE(calls == 1 && seen == inner.get());
    {
        FilePtr w(new FileWrapper(FilePtr(d.fs.lookup("dir")).get(), 1, cb)); // without bit 2: silent
        EXPECT_TRUE(w->isContainer());
        FileList l(true);
        w->list(l);
        w->list("*.none", l);
        EXPECT_EQ((Paths{"/dir/w.txt"}), paths(l));
        EXPECT_EQ(d.at("dir"), core::SmartPtr<FileSystem>(w->asFileSystem())->getRootPath());
    }
    EXPECT_EQ(1, calls);

    MemFS mem;
    MemFile::sDestroyed = 0;
    FilePtr(new FileWrapper(new MemFile("m", &mem), 2, cb)); // the wrapper is the file's only owner
    // Called once, while the wrapped file is still alive.
    EXPECT_EQ(std::make_tuple(2, 0, 1), std::make_tuple(calls, destroyedAtCall, MemFile::sDestroyed.load()));
}

TEST(TemporaryFileSystemTest, RootAndLocalCopies) {
    tmaintest::TempDir tmp;
    char saved[FileOperations::TEMP_PATH_SIZE];
    ASSERT_TRUE(FileOperations::getTemporaryPath(saved, sizeof(saved)));
    TemporaryFileSystem::shutdown();

    std::string tooLong = "/" + std::string(254, 'x'); // does not fit the 255-byte buffer
    ASSERT_TRUE(FileOperations::setTemporaryPath(tooLong.c_str()));
    EXPECT_MESSAGE(core::IllegalStateException, "Unable to initialize temporary file system!!! (error 0)",
                   TemporaryFileSystem::getSingleton());

    ASSERT_TRUE(FileOperations::setTemporaryPath((tmp.path() + "/").c_str()));
    TemporaryFileSystem* tfs = TemporaryFileSystem::getSingleton();
    EXPECT_EQ(tfs, TemporaryFileSystem::getSingleton());
    EXPECT_EQ(tmp.path() + "/TARSO", tfs->getRootPath());

    MemFS mem;
    FilePtr remote(new MemFile("pack/data.bin", &mem, "remote bytes"));
    const char* local = remote->getLocalPath(); // the library's own use of the singleton
    // The file's times (the access time before the read below) and bytes.
    EXPECT_JOINED(tmp.path() + "/TARSO/pack/data.bin|1500000000|1500000100|remote bytes|", local,
                  statOf(local).st_mtime, statOf(local).st_atime, readFile(local));
    put(local, "changed");
    EXPECT_TRUE(local == remote->getLocalPath() && readFile(local) == "changed"); // cached: no second copy
    FilePtr(new MemFile("pack/data.bin", &mem, "fresh"))->getLocalPath();         // a new handle copies again
    EXPECT_EQ("fresh", readFile(local));

    Disk d;
    put(d.at("on-disk"), "x");
    EXPECT_EQ(d.at("on-disk"), FilePtr(d.fs.lookup("on-disk"))->getLocalPath());
    EXPECT_FALSE(tfs->exists("on-disk"));
    {
        tmaintest::ScopedLogCapture log;
        core::SmartPtr<TemporaryFileSystem> held(tfs);
        TemporaryFileSystem::shutdown();
        EXPECT_TRUE(log->contains("Singleton::deleteSingleton. Other references to obj still alive"));
    }
    ASSERT_TRUE(FileOperations::setTemporaryPath(saved));
}

TEST(FileSystemAsync, LookupsFromEightThreads) {
    Disk d;
    put(d.at("found1"), "1");
    put(d.at("dir/found2"), "22");
    MemFS mem;
    core::SmartPtr<TestData> data(new TestData());
    // A found file has `want` as its contents (code -1); a failure has `want`
    // as its message, and code 0 stands for none of the three named codes.
    struct Job {
        FileSystem* fs;
        const char* path;
        int code;
        const char* want;
        core::Future<File*> future = {};
    } jobs[8] = {{&d.fs, "found1", -1, "1"},
                 {&d.fs, "dir/found2", -1, "22"},
                 {&mem, "mem-file", -1, "data of mem-file"},
                 {&d.fs, "missing/a", FileSystem::LUA_NOT_FOUND, "missing/a"},
                 {&mem, "missing-b", FileSystem::LUA_NOT_FOUND, "missing-b"},
                 {&mem, "abort", FileSystem::LUA_STREAM_ABORTED, "aborted abort"},
                 {&mem, "boom", FileSystem::LUA_UNKNOWN_ERROR, "boom at boom"},
                 {&mem, "int", 0, "unknown error looking up file"}};

    std::atomic<int> waiting(8); // all eight threads start their lookups together
    tmaintest::onThreads(8, [&](int i) {
        for (--waiting; waiting > 0;)
            std::this_thread::yield();
        jobs[i].future = jobs[i].fs->lookupAsync(jobs[i].path, data);
        jobs[i].future.wait();
    });

    for (Job& j : jobs) {
        ASSERT_TRUE(j.future.isCompleted()) << j.path;
        FilePtr f(j.future.getResult()); // the reader takes the reference
        if (j.code < 0) {
            EXPECT_FALSE(j.future.hasError()) << j.future.getErrorMessage();
            ASSERT_TRUE(f) << j.path;
            EXPECT_EQ(j.want, readAll(f));
            continue;
        }
        int code = j.future.getErrorCode();
        EXPECT_TRUE(j.future.hasError()) << j.path;
        EXPECT_TRUE(j.code ? code == j.code : code < 1 || code > 3) << j.path << ": " << code;
        EXPECT_EQ(j.want, j.future.getErrorMessage());
        EXPECT_EQ(nullptr, f.get());
    }
    core::ProcessScheduler::killProcesses(true); // every lookup task has ended
    EXPECT_EQ(1, data->getRefCount());
}
