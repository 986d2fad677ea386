#pragma once
#include <string>
#include <tmain/core/CKHashMap.h>
#include <tmain/core/Object.h>
#include <tmain/parser/Expression.h>
#include <tmain/parser/ExpressionParser.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <vector>

namespace tarso {
namespace parser {

/// A C-like preprocessor over raw characters: #define/#undef, #if, #ifdef,
/// #ifndef, #elif, #else, #endif, macro expansion of the text it passes on.
/// Failures throw LexerException; what was written before stays written.
///
/// Deliberate behaviour that differs from a C preprocessor:
/// - text before a '#' on the same line is lost, and a '#' anywhere outside
///   a comment starts a directive (also inside a string);
/// - comments and strings are passed on and macro-expanded like other text;
/// - a macro value is expanded when it is defined, with the macros known then;
/// - arguments are substituted into the value in passes, so an argument that
///   contains a parameter name is substituted again;
/// - the character after a macro name (or after its ')') is skipped whatever
///   it is: "#define A=5" gives A the value 5;
/// - a name is searched as text: occurrences followed by a letter, digit or
///   '_' are passed over and the first other one counts only when no letter
///   precedes it, so "ABC A" expands the second A, "xA A" expands nothing,
///   and "_A" or "1A" expand A;
/// - #if conditions are evaluated inside inactive sections too and see macro
///   values through the variable callback (no expansion of the condition);
///   defined(X) receives X's evaluated value as its argument;
/// - unknown directives (also "# define", with a blank after '#') are copied
///   with CR LF; there is no line continuation and no #include.
/// Expansion that would never end (a text seen before in the same expansion,
/// as with "#define A A") or that grows over 64 MiB throws
/// "Syntax error in macro expansion for %s: recursive expansion". A value
/// that keeps growing (as with "#define A x A") is only stopped by the size
/// limit, after a few seconds of passes.
/// Nesting of #if is handled without recursion, to any depth; a macro call
/// with parentheses nested deeper than 10000 levels throws, since every pass
/// of the rule above strips one level and rescans the rest.
class TMAIN_API Preprocessor : public core::Object {
    TMAIN_TYPE()
public:
    enum Directive {
        NONE = 0,
        DEFINE = 1,
        UNDEF = 2,
        IF = 3,
        IFDEF = 4,
        IFNDEF = 5,
        ELIF = 6,
        ELSE = 7,
        ENDIF = 8
    };

    /// Parameter names and the value; functionLike tells "#define F() x"
    /// (a call without arguments) from "#define F x".
    struct MacroData {
        std::vector<std::string> parameters;
        std::string value;
        bool functionLike = false;
    };

    /// The macro table, with direct access to the stored values.
    class MacroTable : public ::core::CKHashMapValue<MacroData> {
    public:
        MacroTable() : ::core::CKHashMapValue<MacroData>(false, MacroData()) {}
        const MacroData* find(const char* name) const {
            EntryMap::const_iterator it = mEntries.find(name);
            return it == mEntries.end() ? nullptr : &it->second;
        }
    };

    /// The largest expansion result before it counts as runaway.
    static const size_t MAX_EXPANSION_SIZE = 64u << 20;

    Preprocessor();
    Preprocessor(const Preprocessor& other);
    Preprocessor& operator=(const Preprocessor& other);
    ~Preprocessor() override;

    /// Preprocesses all of `in` into `out` and flushes `out`. Macros and
    /// conditions start empty on every call.
    void preprocess(stream::InputStream* in, stream::OutputStream* out);
    void reset();

    /// The macro table as the last preprocess call left it.
    const MacroTable& getMacros() const { return mMacros; }

protected:
    /// The next character, or -1 at the end of the input.
    int read();
    void unread(char c);
    bool atEnd();
    void readComment(std::string& text, bool emit);
    void advanceNextDirective(bool emit);
    void readDirective();
    void parseDirective();
    void applyDirective();
    void applyDefine();
    void applyUndef();
    void applyIfCondition(bool condition);
    void applyElIf();
    void applyElse();
    void applyEndIf();
    void parseMacroParameters(const char* text, MacroData& data);
    void applyMacroParameters(const MacroData& data, const std::vector<std::string>& arguments,
                              std::string& out);
    /// Expands `text` into the expansion result and returns it.
    const std::string& macroExpand(const char* text);
    bool evaluate(std::string& argument);
    bool evaluateDefine(std::string& argument);
    void resolveVariable(const char* name, Expression::Value& value, bool& handled);
    void resolveFunction(const char* name, Expression::Value* args, unsigned count, Expression::Value& result,
                         bool& handled);

    void pushCondition(bool condition);
    void popCondition();
    bool peekCondition() const;
    void setCondition(bool condition);
    unsigned getNestingDepth() const { return (unsigned)mConditions.size(); }
    /// True when every condition except the top n ones is true.
    bool getGlobalCondition(unsigned n) const;

private:
    enum FrameKind { FRAME_IF, FRAME_ELIF, FRAME_ELSE };
    /// One open section: how its text is emitted and when it ends.
    struct Frame {
        FrameKind kind;
        bool emit;
        unsigned depth;
        bool earlierTaken;
    };

    void write(const std::string& text);
    void copyFrom(const Preprocessor& other);

    stream::InputStream* mIn = nullptr;
    stream::OutputStream* mOut = nullptr;
    std::vector<char> mUnread;
    std::string mPending;
    std::string mDirectiveLine;
    std::string mDirectiveName;
    std::string mDirectiveArgument;
    Directive mDirective = NONE;
    ::core::CKHashMapValue<Directive> mDirectives;
    MacroTable mMacros;
    std::vector<bool> mConditions;
    std::string mResult;
    ExpressionParser mParser;

    // Positions of the false entries of mConditions, lowest first, so that
    // getGlobalCondition is O(1) at any nesting depth.
    std::vector<unsigned> mFalseConditions;
    std::vector<Frame> mFrames;
    std::vector<char> mReadBuffer;
    size_t mReadPos = 0;
    size_t mReadEnd = 0;
    bool mInputDone = false;
    const char* mExpanding = "";
};

} // namespace parser
} // namespace tarso
