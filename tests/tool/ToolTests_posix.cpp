// The tmain program run as a process: usage, the local commands, get through
// the cache from a real nginx, interruption and resume, the progress bar in a
// real terminal.
#include "../support/HttpPeers.h"
#include "../support/TestSupport.h"
#include <csignal>
#include <fstream>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/vfs/CacheMap.h>
#include <unistd.h>

using namespace tmaintest;

namespace {

std::string q(const std::string& s) {
    return "'" + s + "'";
}

struct Result {
    int status;
    std::string out, err;
};

/// Runs `tmain <args>` in a shell (UTC, so times print alike everywhere).
Result tmain(const std::string& args, const TempDir& dir) {
    Result r;
    r.status = run("TZ=UTC " + q(TMAIN_TOOL) + " " + args + " 2>" + q(dir.file("stderr")), &r.out);
    r.err = readFile(dir.file("stderr"));
    return r;
}

/// writeFile, making the folders first.
void put(const std::string& path, const std::string& data) {
    run("mkdir -p " + q(path.substr(0, path.rfind('/'))));
    writeFile(path, data);
}

/// Body bytes nginx sent for a URI, over the access log lines from `fromLine` on.
unsigned long long sentFor(const Nginx& nginx, const std::string& uri, size_t fromLine,
                           size_t* lines = nullptr) {
    std::istringstream log(nginx.accessLog());
    std::string line;
    unsigned long long sum = 0;
    size_t i = 0;
    for (; std::getline(log, line); ++i)
        if (i >= fromLine && line.find(" " + uri + " ") != std::string::npos)
            sum += std::stoull(line.substr(line.rfind(' ') + 1));
    if (lines)
        *lines = i;
    return sum;
}

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(TMAIN_TOOL, X_OK) != 0) {
            if (underCI())
                FAIL() << "tmain not built: " << TMAIN_TOOL;
            GTEST_SKIP() << "tmain not built: " << TMAIN_TOOL;
        }
    }
    TempDir dir;
};

} // namespace

TEST_F(ToolTest, UsageAndLocalCommands) {
    TMAIN_REQUIRE_TOOL("zip");
    put(dir.file("good.json"), R"({"b":[1,2.5,"x\n"],"a":{},"c":{"d":null,"e":true}})");
    put(dir.file("bad.json"), "{\"a\": [1,}");
    put(dir.file("src.txt"), "#if LEVEL > 2\nhigh LEVEL\n#else\nlow\n#endif\n");
    put(dir.file("bad.zip"), "PK not really an archive");
    const std::string blob = randomBytes(70000, 7);
    put(dir.file("z/data/blob.bin"), blob);
    put(dir.file("z/readme.txt"), "hello\n");
    ASSERT_EQ(0, run("cd " + q(dir.file("z")) +
                     " && touch -d '2024-01-02 03:04:05Z' data/blob.bin readme.txt data"
                     " && zip -q -r ../pack.zip data readme.txt"));
    const std::string zip = dir.file("pack.zip");
    { // An object file: a map written twice (content, then a reference), big-endian.
        core::SmartPtr<tarso::vfs::CacheMap> map(new tarso::vfs::CacheMap);
        map->addEntry(0, 100);
        tarso::core::Serializer serializer(nullptr);
        serializer.setVersion(tarso::core::Serializer::VERSION_1_0_0_2);
        serializer.addObject(map.get());
        serializer.addObject(map.get());
        tarso::stream::ByteOutputStream out;
        out.setEndianness(tarso::platform::ENDIAN_BIG);
        out.open(tarso::stream::Stream::OM_WRITE | tarso::stream::Stream::OM_BINARY);
        serializer.write(&out, true);
        put(dir.file("map.obj"), std::string((const char*)out.getBytes(), out.getSize()));
    }
    struct Case {
        std::string args;
        int status;
        std::string out, err; // err: a prefix of the single stderr line ("" when none)
    } cases[] = {
        {"--version", 0, "tmain 1.0.0\n", ""},
        {"", 2, "", "tmain: A subcommand is required"},
        {"get", 2, "", "tmain: URL is required"},
        {"ls --bogus " + q(zip), 2, "", "tmain: The following argument was not expected: --bogus"},
        {"eval '(a + 2) * 3 >= b' a=4 b=18", 0, "1\n", ""},
        {"eval 'a * 2' a=1.25", 0, "2.5\n", ""},
        {"eval 'x + 1'", 1, "", "tmain: x + 1: unknown variable 'x' (pass x=VALUE)"},
        {"json " + q(dir.file("good.json")), 0,
         "{\n  \"b\": [\n    1,\n    2.5,\n    \"x\\n\"\n  ],\n  \"a\": {},\n  \"c\": {\n    \"d\": null,\n"
         "    \"e\": true\n  }\n}\n",
         ""},
        {"json --check " + q(dir.file("good.json")), 0, "", ""},
        {"json --check " + q(dir.file("bad.json")), 1, "",
         "tmain: " + dir.file("bad.json") + ": Unable to parse JSON input:"},
        {"pp " + q(dir.file("src.txt")) + " -DLEVEL=3", 0, "high 3\n", ""},
        {"pp " + q(dir.file("src.txt")), 0, "low\n", ""},
        {"objdump " + q(dir.file("map.obj")), 0,
         "TFBE version 1.0.0.2, 2 root objects, 2 records, content 96 bytes\n"
         "@0 OCNT #0 tarso::vfs::CacheMap suid 2 length 68, serial version 2\n@84 OREF -> #0\n",
         ""},
        {"objdump " + q(dir.file("good.json")), 1, "",
         "tmain: " + dir.file("good.json") + ": not an object stream (signature is not TFLE or TFBE)"},
        {"ls " + q(zip), 0, "data/\nreadme.txt\n", ""},
        {"ls -l -r " + q(zip), 0,
         "d            - 2024-01-02 03:04:05  data/\n- " + std::string("       70000") +
             " 2024-01-02 03:04:05  data/blob.bin\n-            6 2024-01-02 03:04:05  readme.txt\n",
         ""},
        {"ls " + q(zip + "!data"), 0, "blob.bin\n", ""},
        {"cat " + q(zip + "!readme.txt"), 0, "hello\n", ""},
        {"cat " + q(zip + "!data/blob.bin"), 0, blob, ""},
        {"cat " + q(zip + "!data/none.bin"), 1, "", "tmain: " + zip + "!data/none.bin: "},
        {"ls " + q(dir.file("bad.zip")), 1, "",
         "tmain: " + dir.file("bad.zip") + ": Could not open ZIP file"},
        {"cat " + q(dir.file("missing.txt")), 1, "", "tmain: " + dir.file("missing.txt") + ": "},
        {"cache status " + q(dir.file("nocache")), 1, "",
         "tmain: " + dir.file("nocache") + ": no cache folder there"},
    };
    for (const Case& c : cases) {
        Result r = tmain(c.args, dir);
        EXPECT_EQ(c.status, r.status) << c.args << "\n" << r.err;
        if (c.status == 0 || !c.out.empty()) {
            EXPECT_TRUE(r.out == c.out) << c.args << "\n" << r.out.substr(0, 400);
        }
        if (c.err.empty()) {
            EXPECT_EQ("", r.err) << c.args;
        } else {
            EXPECT_EQ(0u, r.err.rfind(c.err, 0)) << c.args << "\n" << r.err;
            EXPECT_EQ(r.err.size() - 1, r.err.find('\n')) << "one line: " << r.err;
        }
    }
    Result help = tmain("get --help", dir);
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("--cache")) << help.out;
}

TEST_F(ToolTest, GetThroughTheCache) {
    TMAIN_REQUIRE_TOOL("nginx");
    const std::string data = randomBytes(3u << 20, 1);
    put(dir.file("www/d/data.bin"), data);
    Nginx nginx(dir.file("www"));
    const std::string url = nginx.url("/d/data.bin"), cache = " --cache " + q(dir.file("cache"));
    const std::string origin = "127.0.0.1_" + std::to_string(nginx.port());
    size_t lines = 0;
    for (int pass = 0; pass < 2; ++pass) {
        Result r = tmain("get " + url + " -o " + q(dir.file("out.bin")) + cache, dir);
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ("", r.out + r.err) << "no progress bar, nothing on stdout, when not a terminal";
        EXPECT_TRUE(readFile(dir.file("out.bin")) == data);
        EXPECT_EQ(pass ? 0u : data.size(), sentFor(nginx, "/d/data.bin", lines, &lines)) << "pass " << pass;
    }
    Result piped = tmain("get -o - " + url + cache, dir), cat = tmain("cat " + url, dir);
    EXPECT_TRUE(piped.status == 0 && piped.out == data);
    EXPECT_TRUE(cat.status == 0 && cat.out == data) << cat.err;
    Result status = tmain("cache status " + q(dir.file("cache")), dir);
    EXPECT_EQ(0u, status.out.find(
                      "complete      3145728 " + origin +
                      "/d/data.bin\n"
                      "total: 1 complete (3145728 bytes), 0 partial (0 of 0 bytes cached), cache size "))
        << status.out << status.err;
    Result missing = tmain("get " + nginx.url("/d/none.bin") + cache, dir);
    EXPECT_EQ(1, missing.status);
    EXPECT_EQ("tmain: " + nginx.url("/d/none.bin") + ": Server error (HTTP 404)\n", missing.err);
    EXPECT_FALSE(run("test -e none.bin") == 0);
    EXPECT_EQ("invalidated 1 paths\n",
              tmain("cache invalidate '*/data.bin' " + q(dir.file("cache")), dir).out);
    Result after = tmain("cache status " + q(dir.file("cache")), dir);
    EXPECT_EQ(0u, after.out.find("total: 0 complete")) << after.out << after.err;
    EXPECT_EQ("removed 0 bytes of unfinished files\n", tmain("cache clean " + q(dir.file("cache")), dir).out);
    EXPECT_EQ(0u, tmain("cache clear " + q(dir.file("cache")), dir).out.find("removed "));
}

TEST_F(ToolTest, InterruptedGetResumesWithWhatIsMissing) {
    TMAIN_REQUIRE_TOOL("nginx");
    const std::string data = randomBytes(12u << 20, 2);
    put(dir.file("www/slow/big.bin"), data);
    // The cache saves its map every 4 MiB. Each response slows down after
    // 8 MiB, so the first get is caught mid-transfer and the second is quick.
    Nginx nginx(dir.file("www"), "location /slow/ { limit_rate_after 8m; limit_rate 4m; }");
    const std::string uri = "/slow/big.bin";
    for (int sig : {SIGINT, SIGKILL}) {
        SCOPED_TRACE(sig);
        const std::string cache = dir.file("cache" + std::to_string(sig)),
                          out = dir.file("big" + std::to_string(sig));
        const std::string command = "exec " + q(TMAIN_TOOL) + " get " + nginx.url(uri) + " -o " + q(out) +
                                    " --cache " + q(cache) + " 2>" + q(dir.file("get.err"));
        size_t lines = 0;
        sentFor(nginx, uri, 0, &lines);
        pid_t pid;
        const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
        ASSERT_EQ(0, posix_spawn(&pid, "/bin/sh", nullptr, nullptr, (char**)argv, environ));
        // Wait (polling the cache, with a deadline) until the map on disk holds bytes.
        std::smatch m;
        std::string status;
        const std::regex partial(R"(partial +\d+ \S+ ([1-9]\d*)/(\d+) bytes)");
        for (int i = 0; i < 1000 && !std::regex_search(status, m, partial); ++i) {
            ASSERT_EQ(0, waitpid(pid, nullptr, WNOHANG)) << readFile(dir.file("get.err")) << status;
            usleep(10000);
            run(q(TMAIN_TOOL) + " cache status " + q(cache) + " 2>/dev/null", &status);
        }
        ASSERT_TRUE(std::regex_search(status, m, partial)) << status;
        kill(pid, sig);
        int wstatus = 0;
        waitpid(pid, &wstatus, 0);
        if (sig == SIGINT) {
            EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 130) << wstatus;
            EXPECT_NE(std::string::npos, readFile(dir.file("get.err")).find("interrupted after"));
        } else {
            EXPECT_TRUE(WIFSIGNALED(wstatus));
        }
        ASSERT_TRUE(
            std::regex_search(status = outputOf(q(TMAIN_TOOL) + " cache status " + q(cache)), m, partial))
            << status;
        const unsigned long long cached = std::stoull(m[1]);
        EXPECT_LT(cached, data.size());
        sentFor(nginx, uri, 0, &lines);
        Result again = tmain("get -q " + nginx.url(uri) + " -o " + q(out) + " --cache " + q(cache), dir);
        ASSERT_EQ(0, again.status) << again.err;
        EXPECT_TRUE(readFile(out) == data);
        EXPECT_EQ(data.size() - cached, sentFor(nginx, uri, lines))
            << "the second get fetches only what is missing";
    }
}

TEST_F(ToolTest, ProgressBarInATerminal) {
    TMAIN_REQUIRE_TOOL("tmux");
    TMAIN_REQUIRE_TOOL("nginx");
    put(dir.file("www/slow/bar.bin"), randomBytes(6u << 20, 3));
    Nginx nginx(dir.file("www"), "location /slow/ { limit_rate 24m; }");
    const std::string socket = "tmain-test-" + std::to_string(getpid());
    const std::string command = q(TMAIN_TOOL) + " get " + nginx.url("/slow/bar.bin") + " -o " +
                                q(dir.file("bar.bin")) + " --cache " + q(dir.file("cache")) +
                                "; echo status=$?; tmux -L " + socket + " wait-for -S done; sleep 60";
    ASSERT_EQ(0, run("tmux -L " + socket + " -f /dev/null new-session -d -x 150 -y 10 " + q(command)));
    run("tmux -L " + socket + " wait-for done");
    const std::string pane = outputOf("tmux -L " + socket + " capture-pane -p");
    run("tmux -L " + socket + " kill-server");
    EXPECT_TRUE(std::regex_search(
        pane,
        std::regex(R"(bar\.bin \[#{10,}\] 100% 6\.0 MiB/6\.0 MiB .* left, cached 0 B, fetched 6\.0 MiB)")))
        << pane;
    EXPECT_NE(std::string::npos, pane.find("status=0")) << pane;
}

TEST_F(ToolTest, WsEchoAnswersAWebSocketClientAndStopsOnCtrlC) {
    TMAIN_REQUIRE_TOOL("/usr/bin/python3");
    const std::string command = "exec " + q(TMAIN_TOOL) + " ws-echo >" + q(dir.file("ws.out"));
    const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
    pid_t pid;
    ASSERT_EQ(0, posix_spawn(&pid, "/bin/sh", nullptr, nullptr, (char**)argv, environ));
    std::string url; // the first line of standard output, once the server listens
    for (int i = 0; i < 1000 && url.find('\n') == std::string::npos; ++i, usleep(5000))
        url = readFile(dir.file("ws.out"));
    ASSERT_EQ(0u, url.find("ws://127.0.0.1:")) << url;
    url.erase(url.find('\n'));
    const std::string client =
        "import asyncio, websockets, sys\n"
        "async def main():\n"
        "    async with websockets.connect(sys.argv[1]) as w:\n"
        "        await w.send('hello tmain'); print(await w.recv())\n"
        "        await w.send(bytes(range(200))); print(await w.recv() == bytes(range(200)))\n"
        "asyncio.run(main())\n";
    put(dir.file("client.py"), client);
    EXPECT_EQ("hello tmain\nTrue\n", outputOf("/usr/bin/python3 " + q(dir.file("client.py")) + " " + url));
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}
