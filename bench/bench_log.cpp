// Writes 100-byte messages through Logger::info to a size-rolling
// FileAppender (default layout, 4 MiB files) and, in the same run, lines of
// the same length with a plain fwrite + fflush loop; prints the ratio of the
// times (ours / plain). Also times the appender's hook alone, without the
// logger in front.
#include "BenchTiming.h"

#include <filesystem>
#include <string>
#include <tmain/foundation/Logger.h>
#include <tmain/logging/FileAppender.h>
#include <unistd.h>

namespace {

const int LINES = 200000;
const int REPETITIONS = 9;

struct HookAppender : logging::FileAppender {
    using FileAppender::FileAppender;
    void put(const logging::LogEvent& e, const std::string& text) { append(e, text); }
};

} // namespace

int main() {
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("tmain_bench_log_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const std::string message(100, 'm');
    // The formatted size of one line, so that the plain loop writes as many bytes.
    logging::LogEvent probe{logging::LEVEL_INFO, "bench", message, time(nullptr), "main"};
    const std::string line = logging::SimpleLayout().format(probe);

    std::vector<double> ours, hook, plain;
    auto runOurs = [&] {
        logging::Logger logger("bench");
        logger.addAppender(
            new logging::FileAppender((dir / "ours.log").c_str(), logging::FileAppender::ROLL_SIZE, nullptr));
        ours.push_back(timed([&] {
            for (int i = 0; i < LINES; ++i)
                logger.info("%s", message.c_str());
        }));
    };
    auto runHook = [&] {
        core::SmartPtr<HookAppender> h(
            new HookAppender((dir / "hook.log").c_str(), logging::FileAppender::ROLL_SIZE, nullptr));
        hook.push_back(timed([&] {
            for (int i = 0; i < LINES; ++i)
                h->put(probe, line);
        }));
    };
    auto runPlain = [&] {
        plain.push_back(timed([&] {
            FILE* f = fopen((dir / "plain.log").c_str(), "wb");
            for (int i = 0; i < LINES; ++i) {
                fwrite(line.data(), 1, line.size(), f);
                fflush(f);
            }
            fclose(f);
        }));
    };
    // Each path goes first, second and third equally often: the first writer
    // after the clean-up pays for the freed files.
    for (int r = 0; r < REPETITIONS; ++r) {
        fs::remove_all(dir);
        fs::create_directories(dir);
        for (int k = 0; k < 3; ++k)
            switch ((r + k) % 3) {
            case 0:
                runOurs();
                break;
            case 1:
                runHook();
                break;
            default:
                runPlain();
            }
    }
    fs::remove_all(dir);
    double o = median(ours), k = median(hook), p = median(plain);
    printf("log: %d lines of %zu bytes, median of %d\n", LINES, line.size(), REPETITIONS);
    printf("  Logger::info -> FileAppender (size roll): %.3f s\n", o);
    printf("  FileAppender hook alone:                  %.3f s\n", k);
    printf("  fwrite + fflush:                          %.3f s\n", p);
    printf("  ratio logger/plain %.2f, hook/plain %.2f\n", o / p, k / p);
    return 0;
}
