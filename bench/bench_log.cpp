// Writes 100-byte messages through Logger::info to a size-rolling
// FileAppender (default layout, 4 MiB files) and, in the same run, lines of
// the same length with a plain fwrite + fflush loop; prints the ratio of the
// times (ours / plain), in wall time and in the process's CPU time (the wall
// time of small flushed writes swings with the disk's write-back). Also
// times the appender's hook alone, without the logger in front.
#include "BenchTiming.h"

#include <ctime>
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

double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

/// Appends the wall and CPU seconds of the call.
template <class F> void measure(std::vector<double>& wall, std::vector<double>& cpu, F f) {
    double c = cpuSeconds();
    wall.push_back(timed(f));
    cpu.push_back(cpuSeconds() - c);
}

} // namespace

int main() {
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("tmain_bench_log_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const std::string message(100, 'm');
    // The formatted size of one line, so that the plain loop writes as many bytes.
    logging::LogEvent probe{logging::LEVEL_INFO, "bench", message, time(nullptr), "main"};
    const std::string line = logging::SimpleLayout().format(probe);

    std::vector<double> ours, hook, plain, oursCpu, hookCpu, plainCpu;
    auto runOurs = [&] {
        logging::Logger logger("bench");
        logger.addAppender(
            new logging::FileAppender((dir / "ours.log").c_str(), logging::FileAppender::ROLL_SIZE, nullptr));
        measure(ours, oursCpu, [&] {
            for (int i = 0; i < LINES; ++i)
                logger.info("%s", message.c_str());
        });
    };
    auto runHook = [&] {
        core::SmartPtr<HookAppender> h(
            new HookAppender((dir / "hook.log").c_str(), logging::FileAppender::ROLL_SIZE, nullptr));
        measure(hook, hookCpu, [&] {
            for (int i = 0; i < LINES; ++i)
                h->put(probe, line);
        });
    };
    auto runPlain = [&] {
        measure(plain, plainCpu, [&] {
            FILE* f = fopen((dir / "plain.log").c_str(), "wb");
            for (int i = 0; i < LINES; ++i) {
                fwrite(line.data(), 1, line.size(), f);
                fflush(f);
            }
            fclose(f);
        });
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
    double oc = median(oursCpu), kc = median(hookCpu), pc = median(plainCpu);
    printf("log: %d lines of %zu bytes, median of %d (wall / CPU seconds)\n", LINES, line.size(),
           REPETITIONS);
    printf("  Logger::info -> FileAppender (size roll): %.3f / %.3f\n", o, oc);
    printf("  FileAppender hook alone:                  %.3f / %.3f\n", k, kc);
    printf("  fwrite + fflush:                          %.3f / %.3f\n", p, pc);
    printf("  ratio logger/plain %.2f (CPU %.2f), hook/plain %.2f (CPU %.2f)\n", o / p, oc / pc, k / p,
           kc / pc);
    return 0;
}
