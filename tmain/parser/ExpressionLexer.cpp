#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <tmain/parser/ExpressionLexer.h>

namespace tarso {
namespace parser {

ExpressionLexer::ExpressionLexer(unsigned flags)
    : Lexer(flags & ~FLAG_OWNS_TOKENS, 1024), mString(ID_STRING, "<!string!>"), mInt(ID_INT, "<!int!>", 0),
      mFloat(ID_FLOAT, "<!float!>", 0.0f), mBool(ID_BOOL, "<!bool!>", false),
      mIdentifier(ID_IDENTIFIER, "<!id!>") {
    fillTokens();
}

ExpressionLexer::~ExpressionLexer() {
    for (Token* token : mOperators)
        delete token;
}

void ExpressionLexer::fillTokens() {
    static const char* const texts[20] = {"(", ")", ",", "*",  "/",  "+", "-",  "||", "&&", "!",
                                          "|", "&", "~", "==", "!=", ">", ">=", "<",  "<=", "^"};
    for (unsigned i = 0; i < 20; ++i) {
        mOperators[i] = new Token(i + 1, texts[i]);
        addToken(mOperators[i]);
    }
}

bool ExpressionLexer::isNewLine(const char* p) {
    return *p == '\r';
}

bool ExpressionLexer::isIgnorable(char c) {
    return c == '\t' || c == ' ' || c == '\n' || c == '\r' || (signed char)c < 32;
}

Lexer::CommentGuess ExpressionLexer::isLineComment(const char* p) {
    return p[0] == '/' && p[1] == '/' ? 2 : 0;
}

Lexer::CommentGuess ExpressionLexer::isMultiLineComment(const char* p) {
    return p[0] == '/' && p[1] == '*' ? 2 : 0;
}

Lexer::CommentGuess ExpressionLexer::isEndMultiLineComment(const char* p) {
    return p[0] == '*' && p[1] == '/' ? 2 : 0;
}

bool ExpressionLexer::isString(const char* p) {
    return *p == '\'' || *p == '"';
}

Token* ExpressionLexer::text2Token(const char* text) {
    if (text == nullptr || text[0] == 0)
        return nullptr;
    size_t length = strlen(text);
    char first = text[0];
    if ((first == '\'' || first == '"') && length >= 2 && text[length - 1] == first) {
        mStringValue.assign(text + 1, length - 2);
        mString.value.stringValue = &mStringValue[0];
        return &mString;
    }
    if (isDigit(first) || first == '.' || first == '-') {
        if (strchr(text, '.')) {
            double d = strtod(text, nullptr);
            // Out of float range reads as infinity rather than an undefined cast.
            mFloat.value.floatValue = d > FLT_MAX ? HUGE_VALF : d < -FLT_MAX ? -HUGE_VALF : (float)d;
            return &mFloat;
        }
        // atoi's reading with a 32-bit long: out-of-range values saturate.
        long long wide = strtoll(text, nullptr, 10);
        int v = wide > INT_MAX ? INT_MAX : wide < INT_MIN ? INT_MIN : (int)wide;
        if (v == 0 && strcmp(text, "0") != 0)
            return nullptr;
        mInt.value.intValue = v;
        return &mInt;
    }
    if (isAlpha(first)) {
        mIdentifier.text = text;
        return &mIdentifier;
    }
    return nullptr;
}

} // namespace parser
} // namespace tarso
