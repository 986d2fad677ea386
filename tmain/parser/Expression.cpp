#include <climits>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/parser/Expression.h>

namespace tarso {
namespace parser {

namespace {
typedef Expression::Value Value;

inline Value intValue(int v) {
    Value r;
    r.type = Value::TYPE_INT;
    r.value.intValue = v;
    return r;
}

inline Value floatValue(float v) {
    Value r;
    r.type = Value::TYPE_FLOAT;
    r.value.floatValue = v;
    return r;
}

inline bool isString(const Value& v) {
    return v.type == Value::TYPE_STRING;
}

inline float asFloat(const Value& v) {
    return v.type == Value::TYPE_FLOAT ? v.value.floatValue : (float)v.value.intValue;
}

inline bool truth(const Value& v) {
    if (v.type == Value::TYPE_STRING)
        return v.value.stringValue != nullptr;
    unsigned bits;
    memcpy(&bits, &v.value, sizeof(bits));
    return bits != 0;
}

inline int wrap(unsigned v) {
    return (int)v;
}

// false for an int division by zero.
bool arithmetic(unsigned command, const Value& a, const Value& b, Value& out) {
    if (isString(a) || isString(b)) {
        out = intValue(0);
        return true;
    }
    if (a.type != Value::TYPE_FLOAT && b.type != Value::TYPE_FLOAT) {
        unsigned x = (unsigned)a.value.intValue, y = (unsigned)b.value.intValue;
        switch (command) {
        case Expression::CMD_ADD:
            out = intValue(wrap(x + y));
            return true;
        case Expression::CMD_SUB:
            out = intValue(wrap(x - y));
            return true;
        case Expression::CMD_MUL:
            out = intValue(wrap(x * y));
            return true;
        default:
            if (b.value.intValue == 0)
                return false;
            if (b.value.intValue == -1)
                out = intValue(wrap(0u - x)); // INT_MIN / -1 stays INT_MIN
            else
                out = intValue(a.value.intValue / b.value.intValue);
            return true;
        }
    }
    float x = asFloat(a), y = asFloat(b);
    switch (command) {
    case Expression::CMD_ADD:
        out = floatValue(x + y);
        break;
    case Expression::CMD_SUB:
        out = floatValue(x - y);
        break;
    case Expression::CMD_MUL:
        out = floatValue(x * y);
        break;
    default:
        out = floatValue(x / y);
        break;
    }
    return true;
}

int compare(unsigned command, const Value& a, const Value& b) {
    int order; // <0, 0, >0; 2 = unordered (NaN or string against number)
    if (isString(a) || isString(b)) {
        if (!isString(a) || !isString(b))
            return command == Expression::CMD_NE;
        order = strcmp(a.value.stringValue ? a.value.stringValue : "",
                       b.value.stringValue ? b.value.stringValue : "");
        order = order < 0 ? -1 : order > 0 ? 1 : 0;
    } else if (a.type != Value::TYPE_FLOAT && b.type != Value::TYPE_FLOAT) {
        order = a.value.intValue < b.value.intValue ? -1 : a.value.intValue > b.value.intValue ? 1 : 0;
    } else {
        float x = asFloat(a), y = asFloat(b);
        order = x < y ? -1 : x > y ? 1 : x == y ? 0 : 2;
    }
    switch (command) {
    case Expression::CMD_EQ:
        return order == 0;
    case Expression::CMD_NE:
        return order != 0;
    case Expression::CMD_GT:
        return order == 1;
    case Expression::CMD_GE:
        return order == 1 || order == 0;
    case Expression::CMD_LT:
        return order == -1;
    default:
        return order == -1 || order == 0;
    }
}
} // namespace

Expression::Expression() {}

Expression::Expression(const Expression& other)
    : mEntries(other.mEntries), mResults(other.mResults), mVariableCallback(other.mVariableCallback),
      mFunctionCallback(other.mFunctionCallback) {
    copyNames();
}

Expression::Expression(Expression&& other) noexcept = default;
Expression& Expression::operator=(Expression&& other) noexcept = default;
Expression::~Expression() {}

Expression& Expression::operator=(const Expression& other) {
    if (this != &other) {
        Expression copy(other);
        *this = std::move(copy);
    }
    return *this;
}

void Expression::copyNames() {
    mNames.clear();
    for (Entry& entry : mEntries) {
        if ((entry.command == CMD_VARIABLE || entry.command == CMD_FUNCTION) &&
            entry.value.type == Value::TYPE_STRING && entry.value.value.stringValue) {
            size_t length = strlen(entry.value.value.stringValue) + 1;
            std::unique_ptr<char[]> name(new char[length]);
            memcpy(name.get(), entry.value.value.stringValue, length);
            entry.value.value.stringValue = name.get();
            mNames.push_back(std::move(name));
        }
    }
}

void Expression::push(Command command) {
    Entry entry;
    entry.command = command;
    entry.value = intValue(0);
    mEntries.push_back(entry);
}

void Expression::push(int value) {
    Entry entry;
    entry.command = CMD_PUSH;
    entry.value = intValue(value);
    mEntries.push_back(entry);
}

void Expression::push(float value) {
    Entry entry;
    entry.command = CMD_PUSH;
    entry.value = floatValue(value);
    mEntries.push_back(entry);
}

void Expression::push(const char* name, Command command) {
    if (name == nullptr)
        name = "";
    size_t length = strlen(name) + 1;
    std::unique_ptr<char[]> copy(new char[length]);
    memcpy(copy.get(), name, length);
    Entry entry;
    entry.command = command;
    entry.value.type = Value::TYPE_STRING;
    entry.value.value.stringValue = copy.get();
    mEntries.push_back(entry);
    mNames.push_back(std::move(copy));
}

void Expression::clear() {
    mEntries.clear();
    mResults.clear();
    mNames.clear();
}

const Expression::Entry& Expression::getEntry(unsigned index) const {
    if (index >= mEntries.size())
        throw ::core::IllegalArgumentException("Expression::getEntry: index %u out of range (%u entries)",
                                               index, (unsigned)mEntries.size());
    return mEntries[index];
}

const Expression::Value& Expression::getResult(unsigned index) const {
    if (index >= mResults.size())
        throw ::core::IllegalArgumentException("Expression::getResult: index %u out of range (%u results)",
                                               index, (unsigned)mResults.size());
    return mResults[index];
}

const Expression::Value& Expression::getTopResult() const {
    if (mResults.empty())
        throw ::core::IllegalStateException("Expression::getTopResult: no result");
    return mResults.back();
}

unsigned Expression::evaluate(bool resetResults) {
    if (resetResults)
        mResults.clear();
    // Every entry pushes at most one value: the working stack never needs
    // more room than this.
    if (mStack.size() < mEntries.size())
        mStack.resize(mEntries.size());
    long left = run(mStack.data());
    for (long i = 0; i < left; ++i) {
        // Field by field: a float was just stored in 4 bytes, and reading it
        // back as part of a wider copy would stall the store forwarding.
        const Value& v = mStack[i];
        mResults.emplace_back();
        Value& copy = mResults.back();
        copy.type = v.type;
        if (v.type == Value::TYPE_STRING)
            copy.value.stringValue = v.value.stringValue;
        else
            copy.value.intValue = v.value.intValue;
    }
    return (unsigned)mResults.size();
}

long Expression::run(Value* const stack) {
    const size_t count = mEntries.size();
    size_t top = 0; // number of values on the stack
    const bool haveVariables = static_cast<bool>(mVariableCallback);
    // Local copies: the callbacks could alias any member, so the compiler
    // would reload them for every entry.
    const Entry* const entries = mEntries.data();
    for (size_t i = 0; i < count; ++i) {
        const Entry& entry = entries[i];
        // Operands first, by plain branches: they predict better than the
        // jump table of the operators.
        if (entry.command == CMD_PUSH) {
            stack[top++] = entry.value;
            continue;
        }
        if (entry.command == CMD_VARIABLE) {
            if (!haveVariables)
                return -1;
            Value& value = stack[top];
            value.type = Value::TYPE_INT;
            value.value.stringValue = nullptr;
            bool handled = false;
            mVariableCallback(entry.value.value.stringValue, value, handled);
            if (!handled)
                return -1;
            ++top;
            continue;
        }
        switch (entry.command) {
        case CMD_FUNCTION: {
            if (i + 1 >= count || entries[i + 1].command != CMD_PUSH ||
                entries[i + 1].value.type != Value::TYPE_INT || !mFunctionCallback)
                return -1;
            int argc = entries[++i].value.value.intValue;
            if (argc < 0 || (size_t)argc > top)
                return -1;
            mArguments.resize(argc);
            for (int k = 0; k < argc; ++k)
                mArguments[k] = stack[--top];
            Value& result = stack[top];
            result = Value();
            bool handled = false;
            mFunctionCallback(entry.value.value.stringValue, mArguments.data(), (unsigned)argc, result,
                              handled);
            if (!handled)
                return -1;
            ++top;
            break;
        }
        case CMD_ADD:
        case CMD_SUB:
        case CMD_MUL:
        case CMD_DIV: {
            if (top < 2)
                return -1;
            --top;
            Value& a = stack[top - 1];
            const Value& b = stack[top];
            if (a.type == Value::TYPE_FLOAT && b.type == Value::TYPE_FLOAT) { // the common case, inline
                float y = b.value.floatValue;
                float& x = a.value.floatValue;
                switch (entry.command) {
                case CMD_ADD:
                    x += y;
                    break;
                case CMD_SUB:
                    x -= y;
                    break;
                case CMD_MUL:
                    x *= y;
                    break;
                default:
                    x /= y;
                }
            } else if (!arithmetic(entry.command, a, b, a)) {
                return -1;
            }
            break;
        }
        case CMD_NOP:
            break;
        case CMD_NEG: {
            if (top < 1)
                return -1;
            Value& v = stack[top - 1];
            if (v.type == Value::TYPE_FLOAT)
                v.value.floatValue = -v.value.floatValue;
            else if (isString(v))
                v = intValue(0);
            else
                v = intValue(wrap(0u - (unsigned)v.value.intValue));
            break;
        }
        case CMD_AND:
        case CMD_OR: {
            if (top < 2)
                return -1;
            --top;
            bool a = truth(stack[top - 1]), b = truth(stack[top]);
            stack[top - 1] = intValue(entry.command == CMD_AND ? (a && b) : (a || b));
            break;
        }
        case CMD_NOT:
            if (top < 1)
                return -1;
            stack[top - 1] = intValue(!truth(stack[top - 1]));
            break;
        case CMD_EQ:
        case CMD_NE:
        case CMD_GT:
        case CMD_GE:
        case CMD_LT:
        case CMD_LE:
            if (top < 2)
                return -1;
            --top;
            stack[top - 1] = intValue(compare(entry.command, stack[top - 1], stack[top]));
            break;
        default:
            return -1;
        }
    }
    return (long)top;
}

} // namespace parser
} // namespace tarso
