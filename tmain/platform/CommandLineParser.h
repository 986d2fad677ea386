#pragma once
#include <deque>
#include <map>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/Callback.h>

namespace tarso {
namespace platform {

/// Splits a command line into arguments and hands the arguments that start
/// with the command character ('-' by default) to registered handlers.
class TMAIN_API CommandLineParser {
public:
    typedef std::deque<char*> ArgumentList;
    typedef ArgumentList::iterator ArgIterator;
    /// A handler gets the command's name (the text after the command
    /// character; null for a plain argument), the position just past the
    /// argument (so a plain argument is pos[-1]) and the end. It may advance
    /// pos over values it consumes; parsing goes on from there.
    typedef ::core::Callback<void, const char*, ArgIterator&, ArgIterator> Handler;

    /// The executable's full path, then the line's tokens: blanks (' ' only)
    /// separate them; a token starting with '"' runs to the next '"' or the
    /// end and loses its quotes (there is no escape character).
    explicit CommandLineParser(const char* commandLine);
    /// Every non-null element of argv, in order; no executable path is added.
    CommandLineParser(int argc, const char** argv);
    CommandLineParser(const CommandLineParser& other);
    CommandLineParser& operator=(const CommandLineParser& other);
    ~CommandLineParser();

    void setCommandLine(const char* commandLine);
    void setCommandLine(int argc, const char** argv);

    unsigned getArgumentCount() const { return (unsigned)mArguments.size(); }
    /// The stored argument, or null beyond the count.
    const char* getArgument(unsigned index) const {
        return index < mArguments.size() ? mArguments[index] : nullptr;
    }

    void setCommandCharacter(char c) { mCommandCharacter = c; }
    char getCommandCharacter() const { return mCommandCharacter; }

    template <class O>
    void registerCommand(const char* name, O* object,
                         void (O::*method)(const char*, ArgIterator&, ArgIterator)) {
        registerCommand(name, Handler(object, method));
    }
    void registerCommand(const char* name, const Handler& handler);
    void unregisterCommand(const char* name);
    /// The handler for plain arguments and for commands without a handler.
    template <class O>
    void registerUnknown(O* object, void (O::*method)(const char*, ArgIterator&, ArgIterator)) {
        registerUnknown(Handler(object, method));
    }
    void registerUnknown(const Handler& handler);
    void unregisterUnknown();

    /// Walks the arguments once, from the first, calling the handlers.
    void parse();

private:
    static void build(const char* commandLine, ArgumentList& out);
    /// The running executable's full path.
    static std::string executablePath();
    void clear();
    void copyArguments(const ArgumentList& from);

    ArgumentList mArguments;
    std::map<std::string, Handler> mCommands;
    Handler mUnknown;
    char mCommandCharacter;
};

} // namespace platform
} // namespace tarso
