// tmain: fetch, browse and inspect files through the tmain library.
#include "Tool.h"
#include <cstdlib>
#include <tmain/foundation/Logger.h>

#ifndef TMAIN_TOOL_VERSION
#define TMAIN_TOOL_VERSION "0.0.0"
#endif

int main(int argc, char** argv) {
    using namespace tmaintool;
    setBinaryStdio();
    // Failures reach the user as the tool's own one-line errors; the library's
    // log lines appear only when asked for with TMAIN_LOG_LEVEL.
    if (!getenv("TMAIN_LOG_LEVEL"))
        if (logging::ConsoleAppender* console = logging::Logger::getRootLogger().getConsoleAppender())
            console->setThreshold(logging::LEVEL_OFF);
    CLI::App app{"tmain: fetch, browse and inspect files through the tmain library", "tmain"};
    app.set_version_flag("--version", std::string("tmain ") + TMAIN_TOOL_VERSION);
    app.require_subcommand(1);
    int status = EXIT_OK;
    addGet(app, status);
    addLs(app, status);
    addCat(app, status);
    addCache(app, status);
    addObjdump(app, status);
    addJson(app, status);
    addPp(app, status);
    addEval(app, status);
    addWsEcho(app, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // Bad usage: one line naming the problem, and where to look.
        printError("", std::string(e.what()) + " (see tmain --help)");
        return EXIT_USAGE;
    }
    fflush(stdout);
    if (ferror(stdout)) {
        printError("standard output", "write error");
        return EXIT_FAIL;
    }
    return status;
}
