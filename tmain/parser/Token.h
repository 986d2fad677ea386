#pragma once
#include <tmain/Export.h>

namespace tarso {
namespace parser {

/// One lexical unit: a kind (id), its text and a literal value. A plain
/// value type; tokens registered with a lexer are shared by every match, so
/// their position (and the shared EOF/UNKNOWN tokens) are only valid until
/// the lexer's next call.
class TMAIN_API Token {
public:
    /// The literal value of a token: which member is meaningful depends on
    /// the token's kind.
    union Value {
        int intValue;
        float floatValue;
        bool boolValue;
        char* stringValue;
    };

    static constexpr unsigned TOKEN_EOF_ID = 0xFFFF;
    static constexpr unsigned TOKEN_UNKNOWN_ID = 0xFFFE;
    static constexpr unsigned TOKEN_INVALIDBOM_ID = 0xFFFD;

    /// Shared tokens returned by every lexer: "<EOF>", "<UNKNOWN>" and
    /// "<INVALID_BOM>". A lexer writes into them (position, the text of
    /// TOKEN_UNKNOWN) when it returns them.
    static Token TOKEN_EOF;
    static Token TOKEN_UNKNOWN;
    static Token TOKEN_INVALIDBOM;

    /// Enabled, at -1:-1, value 0.
    Token(unsigned id, const char* text);
    /// Takes ownership of `value` (a malloc'ed string, freed with free()).
    Token(unsigned id, const char* text, char* value);
    Token(unsigned id, const char* text, int value);
    Token(unsigned id, const char* text, float value);
    Token(unsigned id, const char* text, bool value);
    /// A copy of a token owning its string owns a fresh copy of it.
    Token(const Token& other);
    Token& operator=(const Token& other);
    ~Token();

    /// False for null; true for TOKEN_EOF and any token with TOKEN_EOF_ID.
    static bool isEOF(const Token* token);

    unsigned id;
    const char* text;
    /// A registered token whose flag is false is treated as absent by lookups.
    bool enabled;
    int line;
    int column;
    /// Byte offset in the input stream of the token's first character.
    unsigned position;
    Value value;
    /// True when the token frees value.stringValue on destruction.
    bool ownsValue;
};

} // namespace parser
} // namespace tarso
