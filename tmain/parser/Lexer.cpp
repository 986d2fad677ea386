#include <cstring>
#include <tmain/parser/Lexer.h>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace parser {

namespace {
// Bytes the comment and string hooks may look at past the current one.
const unsigned LOOKAHEAD = 32;
const unsigned MIN_BUFFER = 2 * LOOKAHEAD;

inline char upper(char c) {
    return c >= 'a' && c <= 'z' ? (char)(c - 'a' + 'A') : c;
}

inline const char* textOf(const Token* token) {
    return token && token->text ? token->text : "(null)";
}
} // namespace

Lexer::Lexer(unsigned flags, unsigned bufferSize)
    : mScratch((bufferSize < MIN_BUFFER ? MIN_BUFFER : bufferSize) + 1), mFlags(flags), mInput(nullptr),
      mBufferSize(bufferSize < MIN_BUFFER ? MIN_BUFFER : bufferSize), mLongestToken(0), mStore(mBufferSize) {
    mCurrent.resize(mBufferSize + 2);
    mRaw.resize(2 * mBufferSize + 1);
    mPrepared.resize(2 * mBufferSize + 3);
    mPreparedPos.resize(mPrepared.size());
    memset(mSingle, 0, sizeof(mSingle));
    reset();
}

Lexer::~Lexer() {
    if (Token::TOKEN_UNKNOWN.text == mStore.getText())
        Token::TOKEN_UNKNOWN.text = "<UNKNOWN>";
    if (mFlags & FLAG_OWNS_TOKENS) {
        for (TokenTable::const_iterator it = mTokens.begin(); it != mTokens.end(); ++it)
            delete it->second;
    }
}

void Lexer::addToken(const Token* token) {
    if (token == nullptr || token->text == nullptr)
        return;
    size_t length = strlen(token->text);
    if (mScratch.size() < length + 1)
        mScratch.resize(length + 1);
    for (size_t i = 0; i <= length; ++i)
        mScratch[i] = (mFlags & FLAG_CASE_SENSITIVE) ? token->text[i] : upper(token->text[i]);
    Token* previous = mTokens.get(&mScratch[0]);
    mTokens.put(&mScratch[0], const_cast<Token*>(token));
    if ((mFlags & FLAG_OWNS_TOKENS) && previous && previous != token)
        delete previous;
    if (length > mLongestToken)
        mLongestToken = (unsigned)length;
    if (length == 1)
        mSingle[(unsigned char)mScratch[0]] = const_cast<Token*>(token);
}

Token* Lexer::findToken(const char* text, bool useText2Token) {
    if (text == nullptr)
        return nullptr;
    // Only the length up to the longest registered text matters.
    size_t length = 0;
    while (length <= mLongestToken && text[length])
        ++length;
    Token* token = nullptr;
    if (length == 1) {
        token = mSingle[(unsigned char)((mFlags & FLAG_CASE_SENSITIVE) ? text[0] : upper(text[0]))];
    } else if (length <= mLongestToken) {
        for (size_t i = 0; i <= length; ++i)
            mScratch[i] = (mFlags & FLAG_CASE_SENSITIVE) ? text[i] : upper(text[i]);
        token = mTokens.get(&mScratch[0]);
    }
    if (token && !token->enabled)
        token = nullptr;
    if (token == nullptr && useText2Token)
        return text2Token(text);
    return token;
}

Token* Lexer::findToken(unsigned id) const {
    for (TokenTable::const_iterator it = mTokens.begin(); it != mTokens.end(); ++it) {
        if (it->second && it->second->id == id)
            return it->second;
    }
    return nullptr;
}

bool Lexer::isIdentifier(const char* text) {
    if (text == nullptr || !isAlpha(text[0]))
        return false;
    for (const char* p = text + 1; *p; ++p) {
        if (!isAlpha(*p) && !isDigit(*p))
            return false;
    }
    return true;
}

void Lexer::checkToken(const Token* token, unsigned expectedId) const {
    if (token && token->id == expectedId)
        return;
    int line = token ? token->line : -1;
    int column = token ? token->column : -1;
    const Token* expected = findToken(expectedId);
    if (expected == nullptr)
        throw LexerException(
            "Syntax error: invalid token search. Expected token ID=%d does not exist. At position %d:%d",
            (int)expectedId, line, column);
    throw LexerException("Syntax error: '%s' expected, '%s' found. At position %d:%d", textOf(expected),
                         textOf(token), line, column);
}

void Lexer::unexpectedToken(const Token* token) const {
    throw LexerException("Syntax error: unexpected token '%s' at position %d:%d", textOf(token),
                         token ? token->line : -1, token ? token->column : -1);
}

Token* Lexer::popToken() {
    if (mPending.empty())
        return nullptr;
    Token* token = mPending.back();
    mPending.pop_back();
    return token;
}

void Lexer::reset() {
    mPending.clear();
    mReadIndex = mPreparedFill = 0;
    mRawFill = mRawIndex = 0;
    mRaw[0] = 0;
    mPrepared[0] = 0;
    mCurrent[0] = 0;
    mStore.clear();
    mComment = NO_COMMENT;
    mPendingSeparator = false;
    mCopiedAny = false;
    mInputEnded = mInput == nullptr;
    mAtStart = true;
    mChunkOffset = 0;
    mTokenPosition = 0;
    if (mInput) {
        try {
            mChunkOffset = mInput->tell();
        } catch (const ::core::Exception&) {
            // A stream without positions counts from where it stands.
        }
    }
}

void Lexer::setInputStream(stream::InputStream* in, bool doReset) {
    mInput = in;
    if (doReset)
        reset();
    else
        mInputEnded = in == nullptr;
    fillRaw();
    if (mAtStart && mRawIndex == 0 && mRawFill >= 2 && (mRaw[0] & 0x80)) {
        const unsigned char* b = reinterpret_cast<const unsigned char*>(&mRaw[0]);
        if (mRawFill >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
            mRawIndex = 3;
        } else {
            mRawIndex = 1;
            Token::TOKEN_INVALIDBOM.position = mChunkOffset;
            pushToken(&Token::TOKEN_INVALIDBOM);
        }
    }
    mAtStart = false;
}

void Lexer::fillRaw() {
    if (mInputEnded || mRawFill - mRawIndex >= LOOKAHEAD)
        return;
    unsigned rest = mRawFill - mRawIndex;
    if (mRawIndex > 0) {
        memmove(&mRaw[0], &mRaw[mRawIndex], rest);
        mChunkOffset += mRawIndex;
        mRawIndex = 0;
        mRawFill = rest;
    }
    const unsigned capacity = 2 * mBufferSize;
    while (mRawFill < mBufferSize && !mInputEnded) {
        unsigned n = mInput->read(&mRaw[mRawFill], 1, capacity - mRawFill);
        if (n == 0 || n > capacity - mRawFill)
            mInputEnded = true;
        else
            mRawFill += n;
    }
    mRaw[mRawFill] = 0;
}

void Lexer::reduce(unsigned target) {
    const unsigned limit = (unsigned)mPrepared.size() - 1;
    while (mPreparedFill - mReadIndex < target && mPreparedFill + 2 <= limit) {
        if (mRawFill - mRawIndex < LOOKAHEAD && !mInputEnded)
            fillRaw();
        if (mRawIndex >= mRawFill)
            break;
        const char* p = &mRaw[mRawIndex];
        CommentGuess guess;
        if (mComment == LINE_COMMENT) {
            if (isNewLine(p))
                mComment = NO_COMMENT;
            else
                ++mRawIndex;
        } else if (mComment == BLOCK_COMMENT) {
            if (isEndMultiLineComment(p)) {
                mRawIndex += getEndMultiLineCommentLength();
                if (mRawIndex > mRawFill)
                    mRawIndex = mRawFill;
                mComment = NO_COMMENT;
            } else {
                ++mRawIndex;
            }
        } else if ((guess = isLineComment(p)) != 0) {
            mRawIndex += guess;
            mComment = LINE_COMMENT;
            mPendingSeparator = mCopiedAny;
        } else if ((guess = isMultiLineComment(p)) != 0) {
            mRawIndex += guess;
            mComment = BLOCK_COMMENT;
            mPendingSeparator = mCopiedAny;
        } else if (isIgnorable(*p)) {
            ++mRawIndex;
            mPendingSeparator = mCopiedAny;
        } else {
            unsigned position = mChunkOffset + mRawIndex;
            if (mPendingSeparator) {
                mPreparedPos[mPreparedFill] = position;
                mPrepared[mPreparedFill++] = SEPARATOR;
                mPendingSeparator = false;
            }
            mPreparedPos[mPreparedFill] = position;
            mPrepared[mPreparedFill++] = *p;
            mCopiedAny = true;
            ++mRawIndex;
        }
        if (mRawIndex > mRawFill)
            mRawIndex = mRawFill;
    }
    mPrepared[mPreparedFill] = 0;
}

unsigned Lexer::prepare(unsigned count) {
    unsigned available = mPreparedFill - mReadIndex;
    if (available >= count)
        return available;
    if (mReadIndex > 0) {
        memmove(&mPrepared[0], &mPrepared[mReadIndex], available);
        memmove(&mPreparedPos[0], &mPreparedPos[mReadIndex], available * sizeof(unsigned));
        mPreparedFill = available;
        mReadIndex = 0;
    }
    reduce((unsigned)mPrepared.size());
    return mPreparedFill - mReadIndex;
}

Token* Lexer::withPosition(Token* token, unsigned position) {
    token->position = position;
    return token;
}

Token* Lexer::next() {
    if (!mPending.empty())
        return popToken();
    unsigned available = prepare(1);
    if (available > 0 && mPrepared[mReadIndex] == SEPARATOR) {
        ++mReadIndex;
        available = prepare(1);
    }
    if (available == 0)
        return withPosition(&Token::TOKEN_EOF, endPosition());
    mTokenPosition = mPreparedPos[mReadIndex];
    if (isString(&mPrepared[mReadIndex]))
        return readString();

    char* text = &mCurrent[0];
    char single[2] = {0, 0};
    unsigned length = 0;
    text[0] = 0;
    while (length < mBufferSize) {
        available = prepare(length + 2);
        if (available <= length)
            break;
        text[length] = mPrepared[mReadIndex + length];
        ++length;
        text[length] = 0;
        char following = available > length ? mPrepared[mReadIndex + length] : 0;
        bool ordinary = following != 0 && following != SEPARATOR;
        bool terminated = !ordinary;
        if (ordinary) {
            single[0] = following;
            terminated = findToken(single, false) != nullptr;
        }
        Token* found = nullptr;
        if (length - 1 <= mLongestToken) {
            found = findToken(text, false);
            if (found && ordinary) {
                // Longest match: a registered longer text wins over this one.
                text[length] = following;
                text[length + 1] = 0;
                Token* longer = findToken(text, false);
                text[length] = 0;
                if (longer)
                    continue;
            }
        }
        if (found) {
            if (terminated || length == 1) {
                mReadIndex += length;
                return withPosition(found, mTokenPosition);
            }
            continue; // a keyword that goes on as a longer word
        }
        if (terminated) {
            Token* token = text2Token(text);
            if (token) {
                mReadIndex += length;
                return withPosition(token, mTokenPosition);
            }
        }
    }
    mReadIndex += length;
    if (length < mBufferSize || prepare(1) == 0)
        return withPosition(&Token::TOKEN_EOF, endPosition());
    mStore.clear();
    mStore.append(text, length);
    Token::TOKEN_UNKNOWN.text = mStore.getText();
    return withPosition(&Token::TOKEN_UNKNOWN, mTokenPosition);
}

Token* Lexer::readString() {
    char quote = mPrepared[mReadIndex++];
    char delimiter[2] = {quote, 0};
    mStore.clear();
    mStore.append(quote);
    readUntil(delimiter, false);
    if (prepare(1) > 0 && mPrepared[mReadIndex] == quote) {
        mStore.append(quote);
        ++mReadIndex;
    }
    Token* token = text2Token(mStore.getText());
    if (token == nullptr) {
        Token::TOKEN_UNKNOWN.text = mStore.getText();
        token = &Token::TOKEN_UNKNOWN;
    }
    return withPosition(token, mTokenPosition);
}

namespace {
void appendBlanked(TextStore& store, const char* text, unsigned length) {
    const char* end = text + length;
    while (text < end) {
        const char* sep = static_cast<const char*>(memchr(text, 0xFF, end - text));
        if (sep == nullptr) {
            store.append(text, (unsigned)(end - text));
            return;
        }
        store.append(text, (unsigned)(sep - text));
        store.append(' ');
        text = sep + 1;
    }
}

const char* findText(const char* base, unsigned length, const char* delimiter, unsigned dlength) {
    const char* end = base + length;
    for (const char* p = base; (unsigned)(end - p) >= dlength;) {
        p = static_cast<const char*>(memchr(p, (unsigned char)delimiter[0], end - p - dlength + 1));
        if (p == nullptr)
            return nullptr;
        if (memcmp(p, delimiter, dlength) == 0)
            return p;
        ++p;
    }
    return nullptr;
}
} // namespace

const char* Lexer::readUntil(const char* delimiter, bool clear) {
    if (clear)
        mStore.clear();
    unsigned dlength = delimiter ? (unsigned)strlen(delimiter) : 0;
    if (dlength == 0 || dlength > mBufferSize)
        return mStore.getText();
    for (;;) {
        unsigned available = prepare(dlength);
        const char* base = &mPrepared[mReadIndex];
        if (available < dlength) {
            appendBlanked(mStore, base, available);
            mReadIndex += available;
            break;
        }
        const char* hit = findText(base, available, delimiter, dlength);
        if (hit) {
            appendBlanked(mStore, base, (unsigned)(hit - base));
            mReadIndex += (unsigned)(hit - base);
            break;
        }
        // The last dlength-1 characters may begin a match that continues
        // past the prepared text.
        unsigned take = available - (dlength - 1);
        appendBlanked(mStore, base, take);
        mReadIndex += take;
    }
    return mStore.getText();
}

bool Lexer::skip(unsigned n) {
    if (n <= mBufferSize) {
        if (prepare(n) < n)
            return false;
        mReadIndex += n;
        return true;
    }
    while (n > 0) {
        unsigned available = prepare(n < mBufferSize ? n : mBufferSize);
        if (available == 0)
            return false;
        unsigned step = available < n ? available : n;
        mReadIndex += step;
        n -= step;
    }
    return true;
}

} // namespace parser
} // namespace tarso
