// ZIP archives made at test time by Info-ZIP's zip and by python3's zipfile,
// plus lying archives written byte by byte by mkzip.py next to this file.
#include "../support/TestSupport.h"
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <tmain/vfs/ZIPFileSystem.h>
#include <utime.h>

using namespace tarso::vfs;
using tarso::stream::InputStream;
using tarso::stream::IOException;
using tarso::stream::Stream;
using tmaintest::outputOf;
typedef core::SmartPtr<File> FilePtr;
typedef std::set<std::string> Paths;
namespace fs = std::filesystem;

namespace {

const char* PY = "/usr/bin/python3";

std::unique_ptr<InputStream> openStream(File* f) {
    std::unique_ptr<InputStream> in(f->getInputStream());
    in->open(Stream::OM_READ | Stream::OM_BINARY);
    return in;
}
std::string readAll(File* f, unsigned chunk = 65536) {
    std::unique_ptr<InputStream> in = openStream(f);
    std::string out, buf(chunk, '\0');
    while (unsigned n = in->read(&buf[0], 1, chunk))
        out.append(buf, 0, n);
    return out;
}
Paths names(FileSystem& zfs, const char* dir) {
    Paths out;
    std::unique_ptr<FileList> list(zfs.list(dir));
    for (File* f : *list)
        out.insert(f->getPath());
    return out;
}
class ZipTest : public ::testing::Test {
protected:
    void SetUp() override {
        TMAIN_REQUIRE_TOOL("zip");
        TMAIN_REQUIRE_TOOL(PY);
        src = tmp.file("src");
        files = {{"a.txt", "hello zip\n"},
                 {"empty.txt", ""},
                 {"textures/noise.bin", tmaintest::randomBytes(300000, 1)},
                 {"textures/deep/x.dat", "deep"}};
        __int64 t = 1600000000;
        for (auto& f : files) {
            fs::create_directories(fs::path(src + "/" + f.first).parent_path());
            tmaintest::writeFile(src + "/" + f.first, f.second);
            struct utimbuf times = {(time_t)t, (time_t)t};
            utime((src + "/" + f.first).c_str(), &times);
            mtimes[f.first] = t;
            t += 3602; // even seconds: DOS times keep them exactly
        }
    }
    // Runs a shell command in the source tree; the archive it makes is `name`.
    std::string make(const std::string& name, const std::string& command) {
        std::string archive = tmp.file(name);
        outputOf("cd '" + src + "' && (" + command + ") 2>&1; test -s '" + archive + "'");
        EXPECT_TRUE(fs::exists(archive)) << command;
        return archive;
    }
    std::string zip(const std::string& name, const std::string& options) {
        return make(name, "zip -q -r " + options + " ../" + name + " .");
    }
    std::string python(const std::string& name, const std::string& method, bool streamed = false) {
        std::string script = std::string(PY) + " " TMAIN_SOURCE_DIR "/tests/zip/mkzip.py --tree " + method;
        return make(name, script + (streamed ? " stream | cat > ../" : " ../") + name);
    }
    // An archive written by mkzip.py from a JSON description.
    std::string lying(const std::string& name, const std::string& json) {
        tmaintest::writeFile(tmp.file(name + ".json"), json);
        outputOf(std::string(PY) + " " TMAIN_SOURCE_DIR "/tests/zip/mkzip.py '" + tmp.file(name + ".json") +
                 "' '" + tmp.file(name) + "'");
        return tmp.file(name);
    }
    // "ok", or how opening, listing or reading every entry failed.
    std::string outcome(const std::string& archive) {
        try {
            ZIPFileSystem zfs(archive.c_str());
            std::vector<std::string> dirs = {"/"};
            while (!dirs.empty()) {
                std::unique_ptr<FileList> list(zfs.list(dirs.back().c_str()));
                dirs.pop_back();
                for (File* f : *list)
                    if (f->isContainer())
                        dirs.push_back(f->getPath());
                    else
                        readAll(f);
            }
        } catch (const IOException& e) { // the message with its causes ("outer: cause")
            std::string m = e.getMessage();
            for (const core::Exception* c = e.getCause(); c; c = c->getCause())
                m += std::string(": ") + c->getMessage();
            return m;
        }
        return "ok";
    }

    tmaintest::TempDir tmp;
    std::string src;
    std::map<std::string, std::string> files;
    std::map<std::string, __int64> mtimes;
};

TEST_F(ZipTest, ArchivesOfZipAndPythonReadByteForByte) {
    std::map<std::string, std::string> archives = {
        {"zip -0", zip("z0.zip", "-0")},
        {"zip -9", zip("z9.zip", "-9")},
        {"zip -D", zip("zD.zip", "-D")},
        {"zip -fz", zip("zfz.zip", "-fz")},
        {"zip piped", make("zp.zip", "zip -q -r - . > ../zp.zip")},
        {"python stored", python("ps.zip", "ZIP_STORED")},
        {"python deflated", python("pd.zip", "ZIP_DEFLATED")},
        {"python streamed", python("pz.zip", "ZIP_DEFLATED", true)},
    };
    for (auto& a : archives) {
        SCOPED_TRACE(a.first);
        const char* archive = a.second.c_str();
        ZIPFileSystem zfs(archive);
        EXPECT_EQ(Paths({"/a.txt", "/empty.txt", "/textures"}), names(zfs, "/"));
        EXPECT_EQ(Paths({"/textures/deep", "/textures/noise.bin"}), names(zfs, "textures"));
        std::unique_ptr<FileList> bins(zfs.list("/textures/", "*.BIN"));
        EXPECT_JOINED("1|/textures/noise.bin|", bins->size(), (*bins)[0]->getPath());
        EXPECT_JOINED("1|1|1|0|1|0|0|1|", zfs.isContainer("textures"), zfs.isContainer("textures/"),
                      zfs.isContainer("/TEXTURES/deep"), zfs.isContainer("a.txt"), zfs.exists("A.TXT"),
                      zfs.exists("nope"), zfs.exists(""), zfs.exists("/"));
        for (auto& f : files) {
            FilePtr file(zfs.lookup(f.first.c_str()));
            EXPECT_JOINED(tmaintest::cat({f.second.size(), mtimes[f.first], 1, 0}), file->getSize(),
                          file->getLastModified(), file->exists(), file->isContainer())
                << f.first;
            EXPECT_TRUE(f.second == readAll(file, 1000)) << f.first;
        }
        // A root inside the archive, directly and through createFromURL.
        ZIPFileSystem inner((a.second + "!/textures").c_str());
        EXPECT_EQ(Paths({"/deep", "/noise.bin"}), names(inner, "/"));
        EXPECT_JOINED("textures/|9|textures/deep/x.dat|/deep/x.dat|", inner.getZIPRoot(),
                      inner.getZIPRootLength(), inner.getAbsolutePath("/deep/x.dat"),
                      inner.getRelativePath("textures/deep/x.dat"));
        core::SmartPtr<FileSystem> url(FileSystem::createFromURL((a.second + "!\\textures\\").c_str()));
        ASSERT_EQ(&ZIPFileSystem::TYPE, &url->getType());
        FilePtr deep(url->lookup("DEEP/x.dat"));
        EXPECT_EQ("deep", readAll(deep));
        EXPECT_THROW(url->lookup("a.txt"), FileNotFoundException);
    }
    // createFromURL: an archive by file URL; a name with ".zip" before its end or a missing file is no
    // archive.
    core::SmartPtr<FileSystem> byURL(FileSystem::createFromURL(("file://" + archives["zip -9"]).c_str()));
    EXPECT_EQ(&ZIPFileSystem::TYPE, &byURL->getType());
    fs::copy_file(archives["zip -9"], tmp.file("twice.zip.zip"));
    core::SmartPtr<FileSystem> twice(FileSystem::createFromURL(tmp.file("twice.zip.zip").c_str()));
    core::SmartPtr<FileSystem> missing(FileSystem::createFromURL(tmp.file("missing.zip").c_str()));
    EXPECT_JOINED("tarso::vfs::SimpleFileSystem|tarso::vfs::SimpleFileSystem|", twice->getType().getName(),
                  missing->getType().getName());
}

TEST_F(ZipTest, HostileArchivesFailWithTheirOwnMessages) {
    tmaintest::writeFile(tmp.file("text.zip"), "this is not an archive\n");
    const std::string text = "a line of text that deflates into fewer bytes, a line of text.";
    // The archive of one entry a.txt with extra fields, plus more entries and top-level fields.
    auto one = [&](const std::string& fields, const std::string& more = "", const std::string& top = "") {
        return "{\"entries\": [{\"name\": \"a.txt\", \"text\": \"" + text + "\"" + fields + "}" + more + "]" +
               top + "}";
    };
    // Entries minizip would hand out as compressed or encrypted bytes are refused.
    std::vector<std::pair<std::string, std::string>> cases = {
        {"uses unsupported compression method 12", zip("bz.zip", "-Z bzip2")},
        {"uses unsupported compression method 14", python("lz.zip", "ZIP_LZMA")},
        {"is encrypted", zip("enc.zip", "-P secret")},
        {"Could not open ZIP file '" + tmp.file("text.zip") + "'", tmp.file("text.zip")},
        {"Could not open ZIP file '" + tmp.file("cut.zip") + "'",
         lying("cut.zip", one("", "", ", \"truncate\": 9"))},
        {"Could not open ZIP file '" + tmp.file("count.zip") + "'",
         lying("count.zip", one("", "", ", \"count\": 65535"))},
        {"ZIP entry 'a.txt': CRC mismatch (12345678 != ", lying("crc.zip", one(", \"crc\": 305419896"))},
        {"ZIP entry 'a.txt' holds more than its declared 5 bytes", lying("small.zip", one(", \"usize\": 5"))},
        {"ZIP entry 'a.txt' ends after 62 of its declared 1000 bytes",
         lying("big.zip", one(", \"usize\": 1000"))},
        {"ZIP entry 'a.txt' is truncated",
         lying("trunc.zip", one(", \"method\": 0, \"usize\": 200000, \"csize\": 200000"))},
        {"Error opening ZIPInputStream: Entry 'b.txt' of '" + tmp.file("overlap.zip") +
             "' cannot be opened (-103)",
         lying("overlap.zip", one("", ", {\"name\": \"b.txt\", \"text\": \"other\", \"same_data_as\": 0}"))},
        {"ZIP entry 'bomb' holds more than its declared 1000 bytes",
         lying("lie.zip", "{\"entries\": [{\"name\": \"bomb\", \"zeros\": 67108864, \"usize\": 1000}]}")},
        {"Error opening ZIPInputStream: Entry 'big' is too large (5368709120 bytes)",
         lying("huge.zip", "{\"entries\": [{\"name\": \"big\", \"text\": \"x\", \"huge\": 5368709120}]}")},
    };
    for (auto& c : cases)
        EXPECT_NE(std::string::npos, outcome(c.second).find(c.first))
            << c.second << ": " << outcome(c.second);
    // An honest 1 GiB of zeros: readable in bounded memory, its size exact.
    ZIPFileSystem bomb(
        lying("bomb.zip", "{\"entries\": [{\"name\": \"z\", \"zeros\": 1073741824}]}").c_str());
    FilePtr z(bomb.lookup("z"));
    std::unique_ptr<InputStream> in = openStream(z);
    std::string buf(1 << 20, 'x');
    in->seek(512 << 20, Stream::SM_BEGIN);
    EXPECT_JOINED("1048576|1|1073741824|537919488|", in->read(&buf[0], 1, (unsigned)buf.size()),
                  buf == std::string(1 << 20, '\0'), z->getSize(), in->tell());
    EXPECT_EQ(0xFFFFFFFFu, FilePtr(ZIPFileSystem(tmp.file("huge.zip").c_str()).lookup("big"))->getSize());
}

TEST_F(ZipTest, NamesLeavingTheArchiveAreNeitherListedNorResolved) {
    std::string archive = lying(
        "evil.zip", "{\"entries\": [{\"name\": \"../evil.txt\"}, {\"name\": \"/abs.txt\"}, {\"name\": "
                    "\"a/../../x.txt\"}, {\"name\": \"C:/c.txt\"}, {\"name\": \"ok/./fine.txt\", \"text\": "
                    "\"fine\"}]}");
    ZIPFileSystem zfs(archive.c_str());
    EXPECT_EQ(Paths({"/ok"}), names(zfs, "/"));
    EXPECT_EQ(Paths({"/ok/fine.txt"}), names(zfs, "ok"));
    EXPECT_JOINED("0|0|0|0|1|", zfs.exists("../evil.txt"), zfs.exists("a/../../x.txt"),
                  zfs.exists("/abs.txt"), zfs.exists("ok/../../evil.txt"), zfs.exists("ok/fine.txt"));
    // A deep copy and a local copy stay inside their roots.
    fs::create_directories(tmp.file("out/inside"));
    SimpleFileSystem out(tmp.file("out/inside").c_str());
    FilePtr top(zfs.lookup("/"));
    FilePtr copied(out.copy(top, FileSystem::COPY_OVERWRITE | FileSystem::COPY_DEEP, nullptr));
    Paths written;
    for (auto& e : fs::recursive_directory_iterator(tmp.file("out")))
        written.insert(e.path().generic_string().substr(tmp.file("out").size()));
    EXPECT_EQ(Paths({"/inside", "/inside/ok", "/inside/ok/fine.txt"}), written);
    FilePtr fine(zfs.lookup("ok/fine.txt"));
    std::string local = fine->getLocalPath();
    EXPECT_EQ("/ok/fine.txt", local.substr(local.size() - 12));
    EXPECT_EQ("fine", tmaintest::readFile(local));
}

TEST_F(ZipTest, StreamsSeekSwitchAndRefuseWhatTheyCannotDo) {
    ZIPFileSystem deflated(zip("z9.zip", "-9").c_str()), stored(zip("z0.zip", "-0").c_str());
    const std::string& noise = files["textures/noise.bin"];
    FilePtr big(deflated.lookup("textures/noise.bin")), small(deflated.lookup("a.txt"));
    // Three streams on one handle, read in turns.
    std::unique_ptr<InputStream> s1 = openStream(big), s2 = openStream(big), s3 = openStream(small);
    std::string r1, r2, r3, buf(1000, '\0');
    for (int i = 0; i < 300; ++i) {
        r1.append(buf, 0, s1->read(&buf[0], 1, 1000));
        r2.append(buf, 0, s2->read(&buf[0], 1, 700));
        r3.append(buf, 0, s3->read(&buf[0], 1, 1));
    }
    EXPECT_JOINED("1|1|1|", r1 == noise, r2 == noise.substr(0, 210000), r3 == files["a.txt"]);
    auto at = [&](InputStream* in, int offset, Stream::ESeekMode mode) {
        in->seek(offset, mode);
        unsigned pos = in->tell();
        std::string b(10, '\0');
        b.resize(in->read(&b[0], 1, 10));
        return b == noise.substr(pos, 10) ? pos : ~0u;
    };
    EXPECT_JOINED("100000|50010|299990|0|", at(s2.get(), 100000, Stream::SM_BEGIN),
                  at(s2.get(), -50000, Stream::SM_CURRENT), at(s2.get(), 299990, Stream::SM_BEGIN),
                  at(s2.get(), 0, Stream::SM_BEGIN));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "Seek from end not supported for this ZIPInputStream",
                   s2->seek(10, Stream::SM_END));
    EXPECT_MESSAGE(IOException, "Unable to seek to ZIP stream position 300001",
                   s2->seek(300001, Stream::SM_BEGIN));
    EXPECT_MESSAGE(IOException, "ZIPinputStream already opened", s2->open(Stream::OM_READ));
    char line[10];
    EXPECT_MESSAGE(core::UnsupportedOperationException, "ZIPInputStream::readLine not yet implemented",
                   s2->readLine(line, 10, '\n'));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "ZIPInputStream::getSTLStream()", s2->getSTLStream());
    FilePtr plain(stored.lookup("textures/noise.bin"));
    std::unique_ptr<InputStream> s4 = openStream(plain);
    EXPECT_JOINED("299990|1000|298990|", at(s4.get(), 10, Stream::SM_END),
                  at(s4.get(), 1000, Stream::SM_BEGIN), s4->available());
    // Writing is refused.
    for (auto& c : std::map<std::string, std::function<void()>>{
             {"ZIPFileSystem::create(...)", [&] { deflated.create("n", true); }},
             {"ZIPFileSystem::remove(...)", [&] { deflated.remove("a.txt", 0); }},
             {"ZIPFileSystem::touch(...)", [&] { deflated.touch("a.txt"); }},
             {"ZIPFile::getOutputStream()", [&] { small->getOutputStream(); }}})
        EXPECT_MESSAGE(core::UnsupportedOperationException, c.first, c.second());
    // Eight threads read through the one handle.
    std::atomic<int> good(0);
    tmaintest::onThreads(8, [&](int t) {
        for (const char* p : {"textures/noise.bin", "a.txt", "textures/deep/x.dat", "empty.txt"})
            good += readAll(FilePtr(deflated.lookup(p)), 777 + t) == files[p];
    });
    EXPECT_EQ(32, good.load());
    // A closed archive: its files cannot be read any more, lookups fail clearly.
    deflated.close();
    EXPECT_MESSAGE(IOException, "Error opening ZIPInputStream", openStream(small));
    EXPECT_MESSAGE(IOException, "Could not open ZIP file '" + tmp.file("z9.zip") + "'",
                   deflated.exists("a.txt"));
    EXPECT_TRUE(deflated.open());
    EXPECT_EQ(files["a.txt"], readAll(FilePtr(deflated.lookup("a.txt"))));
}

TEST_F(ZipTest, SeventyThousandEntriesAreIndexedOnce) {
    std::string archive = tmp.file("many.zip");
    outputOf(std::string(PY) + " -c \"import zipfile\nwith zipfile.ZipFile('" + archive +
             "', 'w') as z:\n  for i in range(70000): z.writestr('d%d/f%d' % (i % 7, i), str(i))\"");
    ZIPFileSystem zfs(archive.c_str());
    EXPECT_JOINED("70008|7|10000|69999|", zfs.getEntryCount(), names(zfs, "/").size(),
                  names(zfs, "d3").size(), readAll(FilePtr(zfs.lookup("d6/f69999"))));
}

} // namespace
