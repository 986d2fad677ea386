#include <cstdlib>
#include <cstring>
#include <tmain/parser/Token.h>

namespace tarso {
namespace parser {

Token Token::TOKEN_EOF(Token::TOKEN_EOF_ID, "<EOF>");
Token Token::TOKEN_UNKNOWN(Token::TOKEN_UNKNOWN_ID, "<UNKNOWN>");
Token Token::TOKEN_INVALIDBOM(Token::TOKEN_INVALIDBOM_ID, "<INVALID_BOM>");

Token::Token(unsigned id_, const char* text_)
    : id(id_), text(text_), enabled(true), line(-1), column(-1), position(0), ownsValue(false) {
    value.stringValue = nullptr;
}

Token::Token(unsigned id_, const char* text_, char* value_) : Token(id_, text_) {
    value.stringValue = value_;
    ownsValue = true;
}

Token::Token(unsigned id_, const char* text_, int value_) : Token(id_, text_) {
    value.intValue = value_;
}

Token::Token(unsigned id_, const char* text_, float value_) : Token(id_, text_) {
    value.floatValue = value_;
}

Token::Token(unsigned id_, const char* text_, bool value_) : Token(id_, text_) {
    value.boolValue = value_;
}

Token::Token(const Token& other)
    : id(other.id), text(other.text), enabled(other.enabled), line(other.line), column(other.column),
      position(other.position), value(other.value), ownsValue(other.ownsValue) {
    if (ownsValue && value.stringValue)
        value.stringValue = strdup(value.stringValue);
}

Token& Token::operator=(const Token& other) {
    if (this != &other) {
        char* copy = other.ownsValue && other.value.stringValue ? strdup(other.value.stringValue) : nullptr;
        if (ownsValue)
            free(value.stringValue);
        id = other.id;
        text = other.text;
        enabled = other.enabled;
        line = other.line;
        column = other.column;
        position = other.position;
        value = other.value;
        ownsValue = other.ownsValue;
        if (ownsValue)
            value.stringValue = copy;
    }
    return *this;
}

Token::~Token() {
    if (ownsValue)
        free(value.stringValue);
}

bool Token::isEOF(const Token* token) {
    return token != nullptr && (token == &TOKEN_EOF || token->id == TOKEN_EOF_ID);
}

} // namespace parser
} // namespace tarso
