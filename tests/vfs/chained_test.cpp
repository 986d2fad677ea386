// Chained file systems over real directories and a real archive made by zip.
#include "../support/TestSupport.h"
#include <atomic>
#include <filesystem>
#include <memory>
#include <numeric>
#include <set>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/ChainedFileSystem.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <tmain/vfs/ZIPFileSystem.h>

using namespace tarso::vfs;
using tarso::stream::InputStream;
using tarso::stream::Stream;
typedef core::SmartPtr<File> FilePtr;
typedef core::SmartPtr<FileSystem> FSPtr;

namespace {

std::string contents(File* f) {
    std::unique_ptr<InputStream> in(f->getInputStream());
    in->open(Stream::OM_READ | Stream::OM_BINARY);
    std::string out(f->getSize() + 1, '\0');
    out.resize(in->read(&out[0], 1, (unsigned)out.size()));
    return out;
}
// "path=position of its owner in the chain " for every listed file, sorted.
std::string listing(ChainedFileSystem& chain, const char* dir) {
    std::unique_ptr<FileList> list(chain.list(dir));
    std::set<std::string> out;
    for (File* f : *list)
        for (unsigned i = 0; i < chain.getCount(); ++i)
            if (chain.getFileSystem(i) == f->getOwner())
                out.insert(std::string(f->getPath()) + "=" + std::to_string(i) + " ");
    return std::accumulate(out.begin(), out.end(), std::string());
}
// Two directories a and b of a temporary folder, with their file systems.
struct Dirs {
    tmaintest::TempDir tmp;
    FSPtr a, b;
    Dirs() {
        for (const char* f :
             {"a/both.txt", "a/a.txt", "b/both.txt", "b/b.txt", "a/c.txt", "b/c.txt", "c.txt"}) {
            std::filesystem::create_directories(std::filesystem::path(tmp.file(f)).parent_path());
            tmaintest::writeFile(tmp.file(f), std::string("from ") + f);
        }
        a = new SimpleFileSystem(tmp.file("a").c_str());
        b = new SimpleFileSystem(tmp.file("b").c_str());
    }
    FileSystem* owner(File* f) { return FilePtr(f)->getOwner(); }
};

TEST(ChainedFileSystem, PriorityAndWriteOrder) {
    ChainedFileSystem empty;
    EXPECT_JOINED("0|0|", empty.exists("x"), empty.getCount());
    EXPECT_THROW(empty.lookup("x"), FileNotFoundException);
    EXPECT_MESSAGE(tarso::stream::IOException, "Requested path not valid for reading/writing: 'x'",
                   empty.create("x", true));

    Dirs d;
    ChainedFileSystem chain;
    chain.append(d.b);
    chain.prepend(d.a);
    EXPECT_EQ(2, d.a->getRefCount()); // the fixture's and the chain's
    EXPECT_JOINED("from a/both.txt|from b/b.txt|1|0|", contents(FilePtr(chain.lookup("both.txt"))),
                  contents(FilePtr(chain.lookup("/b.txt"))), chain.isContainer("/"),
                  chain.isContainer("a.txt"));
    EXPECT_EQ("/a.txt=0 /b.txt=1 /both.txt=0 /c.txt=0 ", listing(chain, "/"));
    EXPECT_EQ(d.tmp.file("a") + "/both.txt", chain.getAbsolutePath("both.txt"));
    EXPECT_EQ(d.tmp.file("a") + "/new.txt", chain.getAbsolutePath("new.txt"));
    // New files go to the first member without the path, overwrite or not.
    EXPECT_JOINED("1|1|1|", d.owner(chain.create("a.txt", false)) == d.b,
                  d.owner(chain.create("a.txt", true)) == d.b,
                  d.owner(chain.create("new.txt", false)) == d.a);
    EXPECT_MESSAGE(tarso::stream::IOException, "Requested path not valid for reading/writing: 'both.txt'",
                   chain.create("both.txt", false));
    EXPECT_TRUE(d.owner(chain.create("both.txt", true)) == d.a);
    // Removal takes the first member's copy; a lookup then finds the next one.
    chain.remove("both.txt", 0);
    EXPECT_EQ("from b/both.txt", contents(FilePtr(chain.lookup("both.txt"))));
    chain.remove("both.txt", 0);
    EXPECT_THROW(chain.remove("both.txt", 0), FileNotFoundException);
    EXPECT_THROW(chain.touch("both.txt"), FileNotFoundException);
    // A member added twice leaves once per removal, first occurrence first.
    chain.append(d.a);
    chain.remove(d.a.get());
    EXPECT_JOINED("2|1|1|", chain.getCount(), chain.getFileSystem(0) == d.b.get(),
                  chain.getFileSystem(1) == d.a.get());
    chain.remove(d.a.get());
    chain.remove(d.a.get()); // not a member any more: ignored
    EXPECT_JOINED("1|1|", chain.getCount(), d.a->getRefCount());
    ChainedFileSystem copy(chain);
    EXPECT_JOINED("1|3|", copy.getCount(), d.b->getRefCount());
}

TEST(ChainedFileSystem, DirectoryBeforeArchive) {
    TMAIN_REQUIRE_TOOL("zip");
    Dirs d;
    std::filesystem::create_directories(d.tmp.file("pack/textures"));
    tmaintest::writeFile(d.tmp.file("pack/textures/noise.bin"), "packed noise");
    tmaintest::writeFile(d.tmp.file("pack/textures/other.bin"), "packed other");
    tmaintest::outputOf("cd '" + d.tmp.file("pack") + "' && zip -q -r ../pack.zip .");
    std::filesystem::create_directories(d.tmp.file("a/textures"));
    tmaintest::writeFile(d.tmp.file("a/textures/noise.bin"), "override");
    ChainedFileSystem chain;
    chain.append(d.a);
    chain.append(FSPtr(FileSystem::createFromURL(d.tmp.file("pack.zip").c_str())));
    EXPECT_EQ("/textures/noise.bin=0 /textures/other.bin=1 ", listing(chain, "textures"));
    EXPECT_EQ("/a.txt=0 /both.txt=0 /c.txt=0 /textures=0 ", listing(chain, "/"));
    EXPECT_JOINED("override|packed other|1|", contents(FilePtr(chain.lookup("textures/noise.bin"))),
                  contents(FilePtr(chain.lookup("textures/other.bin"))), chain.isContainer("textures"));
    // The archive takes no new files: they go to the directory.
    EXPECT_TRUE(d.owner(chain.create("textures/new.bin", false)) == d.a);
}

TEST(ChainedFileSystem, ReadersWhileMembersComeAndGo) {
    Dirs d;
    FSPtr c(new SimpleFileSystem(d.tmp.path().c_str()));
    ChainedFileSystem chain;
    chain.append(c); // always there: every lookup must succeed
    std::atomic<int> good(0), bad(0);
    tmaintest::onThreads(8, [&](int t) {
        for (int i = 0; i < 400; ++i) {
            if (t == 0) {
                chain.prepend(d.a);
                chain.remove(d.a.get());
            } else if (t == 1) {
                chain.append(d.b);
                chain.prepend(d.b);
                chain.remove(d.b.get());
                chain.remove(d.b.get());
            } else {
                std::string got = contents(FilePtr(chain.lookup("c.txt")));
                (got == "from a/c.txt" || got == "from b/c.txt" || got == "from c.txt" ? good : bad)++;
                std::unique_ptr<FileList> list(chain.list("/", "c.*"));
                if (list->size() != 1)
                    ++bad;
            }
        }
    });
    EXPECT_JOINED("2400|0|1|1|1|", good.load(), bad.load(), chain.getCount(), d.a->getRefCount(),
                  d.b->getRefCount());
}

} // namespace
