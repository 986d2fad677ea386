#include <algorithm>
#include <cstdlib>
#include <memory>
#include <tmain/parser/LexerException.h>
#include <tmain/parser/Preprocessor.h>
#include <tmain/parser/detail/PreprocessorExpansion.h>
#include <tmain/stream/ByteInputStream.h>
#include <unordered_set>

namespace tarso {
namespace parser {

const ::core::Type Preprocessor::TYPE("Preprocessor", &core::Object::TYPE);

namespace {

const size_t READ_BLOCK = 64 * 1024;

bool isSpace(char c) {
    return c == ' ' || c == '\r' || c == '\n' || c == '\t';
}

bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::string trimmed(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isSpace(s[b]))
        ++b;
    while (e > b && isSpace(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

// The first occurrence of word in text at or after from that is neither
// preceded nor followed by a letter, digit or '_'.
size_t findWord(const std::string& text, const std::string& word, size_t from) {
    if (word.empty())
        return std::string::npos;
    for (;;) {
        size_t p = text.find(word, from);
        if (p == std::string::npos)
            return p;
        size_t e = p + word.size();
        if ((p == 0 || !isNameChar(text[p - 1])) && (e == text.size() || !isNameChar(text[e])))
            return p;
        from = p + 1;
    }
}

} // namespace

Preprocessor::Preprocessor() : mDirectives(false, NONE), mParser(nullptr, true) {
    static const struct {
        const char* name;
        Directive code;
    } table[] = {{"define", DEFINE}, {"undef", UNDEF}, {"if", IF},     {"ifdef", IFDEF},
                 {"ifndef", IFNDEF}, {"elif", ELIF},   {"else", ELSE}, {"endif", ENDIF}};
    for (const auto& d : table)
        mDirectives.put(d.name, d.code);
}

Preprocessor::Preprocessor(const Preprocessor& other)
    : core::Object(other), mDirectives(other.mDirectives), mMacros(other.mMacros), mParser(nullptr, true) {
    copyFrom(other);
}

Preprocessor& Preprocessor::operator=(const Preprocessor& other) {
    if (this != &other) {
        mDirectives = other.mDirectives;
        mMacros = other.mMacros;
        copyFrom(other);
    }
    return *this;
}

Preprocessor::~Preprocessor() {}

void Preprocessor::copyFrom(const Preprocessor& other) {
    mIn = other.mIn;
    mOut = other.mOut;
    mUnread = other.mUnread;
    mPending = other.mPending;
    mDirectiveLine = other.mDirectiveLine;
    mDirectiveName = other.mDirectiveName;
    mDirectiveArgument = other.mDirectiveArgument;
    mDirective = other.mDirective;
    mConditions = other.mConditions;
    mResult = other.mResult;
    mFalseConditions = other.mFalseConditions;
    mFrames = other.mFrames;
    mReadBuffer = other.mReadBuffer;
    mReadPos = other.mReadPos;
    mReadEnd = other.mReadEnd;
    mInputDone = other.mInputDone;
}

void Preprocessor::reset() {
    mPending.clear();
    mDirectiveLine.clear();
    mDirectiveName.clear();
    mDirectiveArgument.clear();
    mDirective = NONE;
    mUnread.clear();
    mMacros.clear();
    mConditions.clear();
    mFalseConditions.clear();
    mFrames.clear();
    mResult.clear();
    mReadPos = mReadEnd = 0;
    mInputDone = false;
    mParser.reset();
}

void Preprocessor::preprocess(stream::InputStream* in, stream::OutputStream* out) {
    mIn = in;
    mOut = out;
    reset();
    // Sections are kept as an explicit stack of frames instead of recursion,
    // so that nesting depth is bounded by memory only.
    while (!atEnd()) {
        bool emit = mFrames.empty() ? true : mFrames.back().emit;
        advanceNextDirective(emit);
        if (!mFrames.empty()) {
            const Frame& f = mFrames.back();
            // After a taken branch, the next #elif or #else must see a true top
            // so that it stays off.
            if (f.kind == FRAME_ELIF && f.earlierTaken && (mDirective == ELIF || mDirective == ELSE))
                setCondition(true);
        }
        applyDirective();
        while (!mFrames.empty()) {
            const Frame& f = mFrames.back();
            unsigned depth = getNestingDepth();
            bool done = f.kind == FRAME_IF     ? depth <= f.depth
                        : f.kind == FRAME_ELIF ? depth != f.depth
                                               : depth < f.depth;
            if (!done)
                break;
            mFrames.pop_back();
        }
    }
    mFrames.clear();
    mOut->flush();
}

int Preprocessor::read() {
    if (!mUnread.empty()) {
        char c = mUnread.back();
        mUnread.pop_back();
        return (unsigned char)c;
    }
    if (mReadPos == mReadEnd) {
        if (mInputDone || mIn == nullptr)
            return -1;
        if (mReadBuffer.size() < READ_BLOCK)
            mReadBuffer.resize(READ_BLOCK);
        mReadPos = 0;
        mReadEnd = mIn->read(mReadBuffer.data(), 1, (unsigned)READ_BLOCK);
        if (mReadEnd == 0) {
            mInputDone = true;
            return -1;
        }
    }
    return (unsigned char)mReadBuffer[mReadPos++];
}

void Preprocessor::unread(char c) {
    mUnread.push_back(c);
}

bool Preprocessor::atEnd() {
    int c = read();
    if (c < 0)
        return true;
    unread((char)c);
    return false;
}

void Preprocessor::readComment(std::string& text, bool emit) {
    int kind = read(); // '/' or '*', the opener's second character
    if (emit) {
        text += '/';
        text += (char)kind;
    }
    int c;
    if (kind == '/') {
        while ((c = read()) >= 0) {
            if (c == '\n') {
                unread('\n');
                return;
            }
            if (emit)
                text += (char)c;
        }
        return;
    }
    int previous = 0;
    while ((c = read()) >= 0) {
        if (emit)
            text += (char)c;
        if (previous == '*' && c == '/')
            return;
        previous = c;
    }
}

void Preprocessor::advanceNextDirective(bool emit) {
    mPending.clear();
    mDirective = NONE;
    bool directive = false;
    int c;
    while ((c = read()) >= 0) {
        if (c == '/') {
            int n = read();
            if (n == '/' || n == '*') {
                unread((char)n);
                readComment(mPending, emit);
                continue;
            }
            if (emit)
                mPending += '/';
            if (n >= 0)
                unread((char)n);
            continue;
        }
        if (c == '#') {
            size_t lf = mPending.rfind('\n');
            mPending.erase(lf == std::string::npos ? 0 : lf + 1);
            directive = true;
            break;
        }
        if (c != 0 && emit)
            mPending += (char)c;
    }
    if (emit)
        write(macroExpand(mPending.c_str()));
    if (!directive)
        return;
    readDirective();
    parseDirective();
    if (emit && mDirective == NONE && !mDirectiveLine.empty())
        write("#" + mDirectiveLine + "\r\n");
}

void Preprocessor::readDirective() {
    mDirectiveLine.clear();
    int c;
    while ((c = read()) >= 0 && c != '\r' && c != '\n')
        mDirectiveLine += (char)c;
    while (c == '\r' || c == '\n')
        c = read();
    if (c >= 0)
        unread((char)c);
}

void Preprocessor::parseDirective() {
    size_t end = 0;
    while (end < mDirectiveLine.size() && !isSpace(mDirectiveLine[end]))
        ++end;
    mDirectiveName = mDirectiveLine.substr(0, end);
    mDirectiveArgument = trimmed(mDirectiveLine.substr(end));
    mDirective = mDirectives.get(mDirectiveName.c_str());
}

void Preprocessor::applyDirective() {
    switch (mDirective) {
    case DEFINE:
        if (getGlobalCondition(0))
            applyDefine();
        break;
    case UNDEF:
        if (getGlobalCondition(0))
            applyUndef();
        break;
    case IF:
        applyIfCondition(evaluate(mDirectiveArgument));
        break;
    case IFDEF:
        applyIfCondition(evaluateDefine(mDirectiveArgument));
        break;
    case IFNDEF:
        applyIfCondition(!evaluateDefine(mDirectiveArgument));
        break;
    case ELIF:
        applyElIf();
        break;
    case ELSE:
        applyElse();
        break;
    case ENDIF:
        applyEndIf();
        break;
    default:
        break;
    }
}

void Preprocessor::applyDefine() {
    const std::string& arg = mDirectiveArgument;
    if (arg.empty())
        return;
    size_t n = 0;
    while (n < arg.size() && isNameChar(arg[n]))
        ++n;
    std::string name = arg.substr(0, n);
    MacroData data;
    size_t rest = n;
    if (n < arg.size() && arg[n] == '(') {
        size_t close = arg.find(')', n);
        if (close == std::string::npos)
            throw LexerException("Missing ')' in macro definition: %s", arg.c_str());
        parseMacroParameters(arg.substr(n, close + 1 - n).c_str(), data);
        rest = close + 1;
    }
    if (rest < arg.size())
        ++rest; // the character after the name or the ')' is skipped, whatever it is
    while (rest < arg.size() && isSpace(arg[rest]))
        ++rest;
    // A definition without a name could never be found in the text.
    if (name.empty())
        return;
    data.value = macroExpand(arg.c_str() + rest);
    mMacros.put(name, std::move(data));
}

void Preprocessor::applyUndef() {
    size_t e = 0;
    while (e < mDirectiveArgument.size() && mDirectiveArgument[e] != ' ')
        ++e;
    mMacros.remove(mDirectiveArgument.substr(0, e).c_str());
}

void Preprocessor::parseMacroParameters(const char* text, MacroData& data) {
    const char* p = text;
    while (*p == '(')
        ++p;
    data.parameters.clear();
    data.functionLike = true;
    if (*p == ')' && p != text)
        return; // "()": a function-like macro without parameters
    for (;;) {
        while (*p == ' ')
            ++p;
        const char* start = p;
        while (isNameChar(*p))
            ++p;
        if (p == start)
            throw LexerException("Invalid macro parameters: %s", text);
        data.parameters.emplace_back(start, p - start);
        while (*p == ' ')
            ++p;
        if (*p == ',') {
            ++p;
            continue;
        }
        if (*p == ')' || *p == 0)
            return;
        throw LexerException("Invalid macro parameters: %s", text);
    }
}

void Preprocessor::applyMacroParameters(const MacroData& data, const std::vector<std::string>& arguments,
                                        std::string& out) {
    out = data.value;
    std::unordered_set<size_t> seen;
    seen.insert(std::hash<std::string>()(out));
    for (;;) {
        bool any = false;
        for (size_t i = 0; i < data.parameters.size() && i < arguments.size(); ++i) {
            const std::string& name = data.parameters[i];
            size_t p = findWord(out, name, 0);
            if (p == std::string::npos)
                continue;
            // An argument holding its own (unique) parameter as a word brings
            // that word back on every pass: the substitution never ends.
            if (findWord(arguments[i], name, 0) != std::string::npos &&
                std::count(data.parameters.begin(), data.parameters.end(), name) == 1)
                throw LexerException("Syntax error in macro expansion for %s: recursive expansion",
                                     mExpanding);
            out.replace(p, data.parameters[i].size(), arguments[i]);
            any = true;
            if (out.size() > MAX_EXPANSION_SIZE)
                throw LexerException("Syntax error in macro expansion for %s: recursive expansion",
                                     mExpanding);
        }
        if (!any)
            return;
        if (!seen.insert(std::hash<std::string>()(out)).second)
            throw LexerException("Syntax error in macro expansion for %s: recursive expansion", mExpanding);
    }
}

const std::string& Preprocessor::macroExpand(const char* text) {
    detail::PreprocessorExpansion expansion(
        mMacros,
        [this](const char* name, const MacroData& d, const std::vector<std::string>& a, std::string& o) {
            mExpanding = name;
            applyMacroParameters(d, a, o);
        });
    std::string result;
    expansion.expand(text, std::strlen(text), result);
    mResult.swap(result);
    return mResult;
}

void Preprocessor::write(const std::string& text) {
    if (!text.empty())
        mOut->write(text.data(), 1, (unsigned)text.size());
}

void Preprocessor::applyIfCondition(bool condition) {
    bool active = getGlobalCondition(0);
    Frame f = {FRAME_IF, condition && active, getNestingDepth(), false};
    pushCondition(condition);
    mFrames.push_back(f);
}

void Preprocessor::applyElIf() {
    if (mConditions.empty())
        throw LexerException("Unexpected #elif");
    bool taken = peekCondition();
    setCondition(taken ? false : evaluate(mDirectiveArgument));
    Frame f = {FRAME_ELIF, peekCondition() && getGlobalCondition(1), getNestingDepth(), taken};
    mFrames.push_back(f);
}

void Preprocessor::applyElse() {
    if (mConditions.empty())
        throw LexerException("Unexpected #else");
    setCondition(!peekCondition());
    Frame f = {FRAME_ELSE, peekCondition() && getGlobalCondition(1), getNestingDepth(), false};
    mFrames.push_back(f);
}

void Preprocessor::applyEndIf() {
    if (mConditions.empty())
        throw LexerException("Unexpected #endif");
    popCondition();
}

void Preprocessor::pushCondition(bool condition) {
    if (!condition)
        mFalseConditions.push_back((unsigned)mConditions.size());
    mConditions.push_back(condition);
}

void Preprocessor::popCondition() {
    if (mConditions.empty())
        return;
    if (!mConditions.back())
        mFalseConditions.pop_back();
    mConditions.pop_back();
}

bool Preprocessor::peekCondition() const {
    return mConditions.empty() ? true : (bool)mConditions.back();
}

void Preprocessor::setCondition(bool condition) {
    if (mConditions.empty())
        return;
    popCondition();
    pushCondition(condition);
}

bool Preprocessor::getGlobalCondition(unsigned n) const {
    size_t counted = n >= mConditions.size() ? 0 : mConditions.size() - n;
    return mFalseConditions.empty() || mFalseConditions.front() >= counted;
}

bool Preprocessor::evaluateDefine(std::string& argument) {
    return mMacros.containsKey(argument.c_str());
}

bool Preprocessor::evaluate(std::string& argument) {
    stream::ByteInputStream in(argument.data(), (unsigned)argument.size(), false);
    std::unique_ptr<Expression> expression(mParser.parse(&in));
    expression->setVariableCallback(Expression::VariableCallback(this, &Preprocessor::resolveVariable));
    expression->setFunctionCallback(Expression::FunctionCallback(this, &Preprocessor::resolveFunction));
    if (expression->evaluate(true) != 1)
        throw LexerException("Error evaluating expression: %s", argument.c_str());
    const Expression::Value& v = expression->getTopResult();
    if (v.type == Expression::Value::TYPE_FLOAT)
        return v.value.floatValue != 0.0f;
    if (v.type == Expression::Value::TYPE_STRING)
        return v.value.stringValue != nullptr;
    return v.value.intValue != 0;
}

void Preprocessor::resolveVariable(const char* name, Expression::Value& value, bool& handled) {
    handled = true;
    const MacroData* macro = mMacros.find(name);
    const std::string* text = macro ? &macro->value : nullptr;
    value.type = Expression::Value::TYPE_INT;
    value.value.intValue = 0;
    if (text == nullptr || text->empty())
        return;
    char c = (*text)[0];
    if ((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+') {
        if (text->find('.') != std::string::npos) {
            value.type = Expression::Value::TYPE_FLOAT;
            value.value.floatValue = (float)std::atof(text->c_str());
        } else {
            value.value.intValue = std::atoi(text->c_str());
        }
        return;
    }
    value.type = Expression::Value::TYPE_STRING;
    value.value.stringValue = text->c_str();
}

void Preprocessor::resolveFunction(const char* name, Expression::Value* args, unsigned count,
                                   Expression::Value& result, bool& handled) {
    if (std::strcmp(name, "defined") != 0 || count != 1 || args[0].type != Expression::Value::TYPE_STRING)
        return;
    handled = true;
    result.type = Expression::Value::TYPE_INT;
    result.value.intValue = mMacros.containsKey(args[0].value.stringValue) ? 1 : 0;
}

} // namespace parser
} // namespace tarso
