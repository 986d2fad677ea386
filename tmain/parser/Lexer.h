#pragma once
#include <deque>
#include <string>
#include <tmain/core/CKHashMap.h>
#include <tmain/parser/LexerException.h>
#include <tmain/parser/TextStore.h>
#include <tmain/parser/Token.h>
#include <vector>

namespace tarso {
namespace stream {
class InputStream;
}
namespace parser {

/// Table-driven lexer over an InputStream. A subclass says what is
/// whitespace, what opens and closes a comment, what opens a string and how a
/// word that is not in the token table becomes a token; the base drops
/// whitespace and comments, matches the longest registered token and serves
/// pushed-back tokens first.
///
/// The input is first reduced to its significant characters: every run of
/// ignorable characters and comments between two of them becomes one 0xFF
/// separator. Tokens are then read from that reduced text, so they never
/// depend on how the stream delivers its bytes. Behaviour worth knowing:
/// - comment openers are recognised everywhere, also inside strings, and
///   whitespace runs inside strings read as one blank; strings have no escapes;
/// - a registered token of two or more characters directly followed by an
///   ordinary character that does not end a word (">=2", "ifx") is not
///   returned: the text goes on as one word;
/// - a word that neither matches nor is accepted by text2Token goes on over
///   the following characters until something accepts it, the word limit
///   (bufferSize characters, giving TOKEN_UNKNOWN) or the end of input;
/// - the lexer does not count lines: tokens carry -1:-1 unless text2Token
///   sets them.
/// A lexer belongs to one thread; the shared static tokens are written by
/// every lexer that returns them.
class TMAIN_API Lexer {
public:
    /// 0 = not a comment opener/closer here, otherwise the marker's length.
    typedef unsigned CommentGuess;

    /// Flag bit 0: the token table owns (deletes) its tokens.
    static constexpr unsigned FLAG_OWNS_TOKENS = 1;
    /// Flag bit 1: token texts are matched case-sensitively.
    static constexpr unsigned FLAG_CASE_SENSITIVE = 2;

    Lexer(unsigned flags, unsigned bufferSize);
    virtual ~Lexer();
    Lexer(const Lexer&) = delete;
    Lexer& operator=(const Lexer&) = delete;

    /// The registered token for a text (upper-cased first unless
    /// case-sensitive), counting only enabled ones; with useText2Token, a miss
    /// is given to text2Token.
    virtual Token* findToken(const char* text, bool useText2Token);
    /// ASCII letter or '_' first, then letters, digits or '_'.
    virtual bool isIdentifier(const char* text);
    virtual bool isNewLine(const char* p) = 0;
    virtual bool isIgnorable(char c) = 0;
    virtual CommentGuess isLineComment(const char* p) = 0;
    virtual CommentGuess isMultiLineComment(const char* p) = 0;
    virtual CommentGuess isEndMultiLineComment(const char* p) = 0;
    virtual const char* getMultilineComment() = 0;
    virtual unsigned getEndMultiLineCommentLength() = 0;
    virtual const char* getEndMultilineComment() = 0;
    /// True when p opens a string (which ends at the next same character).
    virtual bool isString(const char* p) = 0;
    /// The token for a word or string not in the table, or null.
    virtual Token* text2Token(const char* text) = 0;

    /// Attaches the stream (not owned), resets when asked, reads the first
    /// bytes and checks the byte-order mark: EF BB BF is skipped, any other
    /// leading byte with the high bit set is skipped and TOKEN_INVALIDBOM is
    /// returned first.
    void setInputStream(stream::InputStream* in, bool reset);
    stream::InputStream* getInputStream() const { return mInput; }
    /// Empties the pending stack and all buffers; positions count from the
    /// stream's current position.
    void reset();

    /// The next token; TOKEN_EOF (again and again) at the end of input.
    Token* next();

    void pushToken(Token* token) { mPending.push_back(token); }
    /// The last pushed token, or null.
    Token* popToken();
    Token* peekToken() const { return mPending.empty() ? nullptr : mPending.back(); }

    /// Linear scan of the table for a token with that id, or null.
    Token* findToken(unsigned id) const;
    /// Returns when the token has the expected id, else throws LexerException.
    void checkToken(const Token* token, unsigned expectedId) const;
    /// Always throws LexerException.
    [[noreturn]] void unexpectedToken(const Token* token) const;

    /// Collects the text up to the first occurrence of delimiter (not
    /// consumed) or the end of input into the text store, emptied first when
    /// clear is set, and returns it. Separators read as single blanks.
    const char* readUntil(const char* delimiter, bool clear);
    /// Skips n significant characters; false (and nothing skipped) when fewer
    /// remain.
    bool skip(unsigned n);

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

    unsigned getBufferSize() const { return mBufferSize; }
    unsigned getFlags() const { return mFlags; }

protected:
    /// Registers a token under its text (upper-cased unless case-sensitive).
    /// The token must outlive the lexer unless the table owns it.
    void addToken(const Token* token);

    class TokenTable : public ::core::CKHashMapBase<Token*> {
    public:
        TokenTable() : ::core::CKHashMapBase<Token*>(false, nullptr) {}
        void handleLost(Token*) const override {}
    };

    static constexpr char SEPARATOR = (char)0xFF;

    std::vector<char> mScratch;
    TokenTable mTokens;
    unsigned mFlags;
    stream::InputStream* mInput;
    std::deque<Token*> mPending;
    /// The text of the token being read (NUL-terminated).
    std::vector<char> mCurrent;

private:
    /// Makes at least `count` significant characters available from the read
    /// index, unless the input ends first; returns how many are available.
    unsigned prepare(unsigned count);
    /// Reduces raw bytes into the prepared buffer until it holds `target`
    /// characters past the read index or the input is exhausted.
    void reduce(unsigned target);
    /// Tops the raw chunk up so that the hooks can look ahead.
    void fillRaw();
    Token* lookup(const char* text, unsigned length);
    Token* readString();
    Token* withPosition(Token* token, unsigned position);
    unsigned endPosition() const { return mChunkOffset + mRawFill; }

    enum CommentState { NO_COMMENT, LINE_COMMENT, BLOCK_COMMENT };

    std::vector<char> mRaw;
    std::vector<char> mPrepared;
    std::vector<unsigned> mPreparedPos;
    unsigned mBufferSize;
    unsigned mReadIndex;
    unsigned mPreparedFill;
    unsigned mRawFill;
    unsigned mRawIndex;
    unsigned mLongestToken;
    TextStore mStore;
    unsigned mChunkOffset;
    unsigned mTokenPosition;
    CommentState mComment;
    bool mPendingSeparator;
    bool mCopiedAny;
    bool mInputEnded;
    bool mAtStart;
    /// Registered single-character tokens by byte, for the end-of-word test.
    Token* mSingle[256];
};

} // namespace parser
} // namespace tarso
