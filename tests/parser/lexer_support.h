#pragma once
// Helpers of the lexer and expression tests: a memory stream that hands out
// its bytes in small pieces, and a printable dump of a token stream.
#include <algorithm>
#include <string>
#include <tmain/parser/Lexer.h>
#include <tmain/stream/ByteInputStream.h>

namespace parsertest {

/// A memory stream whose reads return at most `chunk` bytes.
class ChunkedStream : public tarso::stream::ByteInputStream {
public:
    ChunkedStream(const std::string& data, unsigned chunk)
        : ByteInputStream(data.data(), (unsigned)data.size(), true), mChunk(chunk) {}
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        return ByteInputStream::read(buffer, 1, std::min(size * count, mChunk));
    }

private:
    unsigned mChunk;
};

/// "id:text@position" per token (value for literal ids given), up to EOF.
inline std::string dump(tarso::parser::Lexer& lexer, const std::string& input, unsigned chunk,
                        unsigned maxTokens = 100000) {
    ChunkedStream in(input, chunk);
    lexer.setInputStream(&in, true);
    std::string out;
    for (unsigned i = 0; i < maxTokens; ++i) {
        tarso::parser::Token* t = lexer.next();
        if (tarso::parser::Token::isEOF(t)) {
            out += "EOF@" + std::to_string(t->position);
            return out;
        }
        out += std::to_string(t->id) + ":" + t->text;
        if (t->id == 21)
            out += "=" + std::string(t->value.stringValue);
        else if (t->id == 22)
            out += "=" + std::to_string(t->value.intValue);
        else if (t->id == 23)
            out += "=" + std::to_string(t->value.floatValue);
        out += "@" + std::to_string(t->position) + " ";
    }
    return out + "...";
}

} // namespace parsertest
