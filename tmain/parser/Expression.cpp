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

typedef Expression::Entry Entry;

// A constant operand fused with the arithmetic operator after it: the
// operator's command plus this, the constant in the entry's value.
const unsigned WITH_CONSTANT = 32;
// A variable fused with the arithmetic operator after it: the operator's
// command plus this, the variable's name in the entry's value.
const unsigned WITH_VARIABLE = 64;

inline bool isArithmetic(unsigned command) {
    return command >= Expression::CMD_ADD && command <= Expression::CMD_DIV;
}

// a = a <Command> b for an arithmetic command; false for an int division by
// zero. One instance per command, so that each operator entry goes straight
// to its own float instruction.
template <unsigned Command> inline bool applyArithmetic(Value& a, const Value& b) {
    if (a.type == Value::TYPE_FLOAT && b.type == Value::TYPE_FLOAT) { // the common case, inline
        float y = b.value.floatValue;
        float& x = a.value.floatValue;
        if (Command == Expression::CMD_ADD)
            x += y;
        else if (Command == Expression::CMD_SUB)
            x -= y;
        else if (Command == Expression::CMD_MUL)
            x *= y;
        else
            x /= y;
        return true;
    }
    return arithmetic(Command, a, b, a);
}

// a = a <Command> b for a comparison, two floats inline (a NaN is unordered:
// only "!=" holds).
template <unsigned Command> inline void applyComparison(Value& a, const Value& b) {
    int result;
    if (a.type == Value::TYPE_FLOAT && b.type == Value::TYPE_FLOAT) {
        float x = a.value.floatValue, y = b.value.floatValue;
        if (Command == Expression::CMD_EQ)
            result = x == y;
        else if (Command == Expression::CMD_NE)
            result = x != y;
        else if (Command == Expression::CMD_GT)
            result = x > y;
        else if (Command == Expression::CMD_GE)
            result = x >= y;
        else if (Command == Expression::CMD_LT)
            result = x < y;
        else
            result = x <= y;
    } else {
        result = compare(Command, a, b);
    }
    a = intValue(result);
}

template <unsigned Command> inline long compareTop(Value*& top, Value* stack) {
    if (top - stack < 2)
        return -1;
    --top;
    applyComparison<Command>(top[-1], *top);
    return 0;
}

// The operator entries, with their operands on the stack or the second one
// in the entry.
template <unsigned Command> inline long operate(Value*& top, Value* stack) {
    if (top - stack < 2)
        return -1;
    --top;
    return applyArithmetic<Command>(top[-1], *top) ? 0 : -1;
}

template <unsigned Command> inline long operateWithConstant(Value* top, Value* stack, const Value& constant) {
    if (top == stack)
        return -1;
    return applyArithmetic<Command>(top[-1], constant) ? 0 : -1;
}

// Fills the slot with the named variable's value; false when that fails.
inline bool fetch(const Expression::VariableCallback& callback, bool haveCallback, const Value& name,
                  Value& slot) {
    if (!haveCallback)
        return false;
    slot.type = Value::TYPE_INT;
    slot.value.stringValue = nullptr;
    bool handled = false;
    callback(name.value.stringValue, slot, handled);
    return handled;
}

// Runs the entries on a stack with room for one value per entry; the number
// of values left, or -1 on failure. A free function: called directly, not
// through the library's exported symbols, and with nothing the callbacks
// could alias.
long run(const Entry* entry, const Entry* const end, Value* const stack,
         const Expression::VariableCallback& variableCallback,
         const Expression::FunctionCallback& functionCallback, std::vector<Value>& arguments) {
    Value* top = stack; // one past the last value
    const bool haveVariables = static_cast<bool>(variableCallback);
    for (; entry != end; ++entry) {
        // Operands first, by plain branches: they predict better than the
        // jump table of the operators.
        if (entry->command == Expression::CMD_PUSH) {
            top->type = entry->value.type;
            top->value = entry->value.value;
            ++top;
            continue;
        }
        if (entry->command == Expression::CMD_VARIABLE) {
            if (!fetch(variableCallback, haveVariables, entry->value, *top))
                return -1;
            ++top;
            continue;
        }
        switch ((unsigned)entry->command) {
        case Expression::CMD_FUNCTION: {
            const Entry* count = entry + 1;
            if (count == end || count->command != Expression::CMD_PUSH ||
                count->value.type != Value::TYPE_INT || !functionCallback)
                return -1;
            int argc = count->value.value.intValue;
            if (argc < 0 || argc > top - stack)
                return -1;
            arguments.resize(argc);
            for (int k = 0; k < argc; ++k)
                arguments[k] = *--top;
            *top = Value();
            bool handled = false;
            functionCallback(entry->value.value.stringValue, arguments.data(), (unsigned)argc, *top, handled);
            if (!handled)
                return -1;
            ++top;
            entry = count;
            break;
        }
        case Expression::CMD_ADD:
            if (operate<Expression::CMD_ADD>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_SUB:
            if (operate<Expression::CMD_SUB>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_MUL:
            if (operate<Expression::CMD_MUL>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_DIV:
            if (operate<Expression::CMD_DIV>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_ADD + WITH_CONSTANT:
            if (operateWithConstant<Expression::CMD_ADD>(top, stack, entry->value) < 0)
                return -1;
            break;
        case Expression::CMD_SUB + WITH_CONSTANT:
            if (operateWithConstant<Expression::CMD_SUB>(top, stack, entry->value) < 0)
                return -1;
            break;
        case Expression::CMD_MUL + WITH_CONSTANT:
            if (operateWithConstant<Expression::CMD_MUL>(top, stack, entry->value) < 0)
                return -1;
            break;
        case Expression::CMD_DIV + WITH_CONSTANT:
            if (operateWithConstant<Expression::CMD_DIV>(top, stack, entry->value) < 0)
                return -1;
            break;
        case Expression::CMD_ADD + WITH_VARIABLE:
            if (!fetch(variableCallback, haveVariables, entry->value, *top))
                return -1;
            ++top;
            if (operate<Expression::CMD_ADD>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_SUB + WITH_VARIABLE:
            if (!fetch(variableCallback, haveVariables, entry->value, *top))
                return -1;
            ++top;
            if (operate<Expression::CMD_SUB>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_MUL + WITH_VARIABLE:
            if (!fetch(variableCallback, haveVariables, entry->value, *top))
                return -1;
            ++top;
            if (operate<Expression::CMD_MUL>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_DIV + WITH_VARIABLE:
            if (!fetch(variableCallback, haveVariables, entry->value, *top))
                return -1;
            ++top;
            if (operate<Expression::CMD_DIV>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_NOP:
            break;
        case Expression::CMD_NEG: {
            if (top == stack)
                return -1;
            Value& v = top[-1];
            if (v.type == Value::TYPE_FLOAT)
                v.value.floatValue = -v.value.floatValue;
            else if (isString(v))
                v = intValue(0);
            else
                v = intValue(wrap(0u - (unsigned)v.value.intValue));
            break;
        }
        case Expression::CMD_AND:
        case Expression::CMD_OR: {
            if (top - stack < 2)
                return -1;
            --top;
            bool a = truth(top[-1]), b = truth(*top);
            top[-1] = intValue(entry->command == Expression::CMD_AND ? (a && b) : (a || b));
            break;
        }
        case Expression::CMD_NOT:
            if (top == stack)
                return -1;
            top[-1] = intValue(!truth(top[-1]));
            break;
        case Expression::CMD_EQ:
            if (compareTop<Expression::CMD_EQ>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_NE:
            if (compareTop<Expression::CMD_NE>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_GT:
            if (compareTop<Expression::CMD_GT>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_GE:
            if (compareTop<Expression::CMD_GE>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_LT:
            if (compareTop<Expression::CMD_LT>(top, stack) < 0)
                return -1;
            break;
        case Expression::CMD_LE:
            if (compareTop<Expression::CMD_LE>(top, stack) < 0)
                return -1;
            break;
        default:
            return -1;
        }
    }
    return (long)(top - stack);
}
} // namespace

Expression::Expression() {}

Expression::Expression(const Expression& other)
    : mEntries(other.mEntries), mVariableCallback(other.mVariableCallback),
      mFunctionCallback(other.mFunctionCallback),
      mStack(other.mStack.begin(), other.mStack.begin() + other.mResultCount),
      mResultCount(other.mResultCount) {
    copyNames();
}

Expression::Expression(Expression&& other) noexcept
    : mEntries(std::move(other.mEntries)), mVariableCallback(std::move(other.mVariableCallback)),
      mFunctionCallback(std::move(other.mFunctionCallback)), mNames(std::move(other.mNames)),
      mArguments(std::move(other.mArguments)), mProgram(std::move(other.mProgram)),
      mProgramReady(other.mProgramReady), mStack(std::move(other.mStack)), mResultCount(other.mResultCount) {
    other.mProgramReady = false;
    other.mResultCount = 0;
}

Expression& Expression::operator=(Expression&& other) noexcept {
    if (this != &other) {
        mEntries = std::move(other.mEntries);
        mVariableCallback = std::move(other.mVariableCallback);
        mFunctionCallback = std::move(other.mFunctionCallback);
        mNames = std::move(other.mNames);
        mArguments = std::move(other.mArguments);
        mProgram = std::move(other.mProgram);
        mProgramReady = other.mProgramReady;
        other.mProgramReady = false;
        mStack = std::move(other.mStack);
        mResultCount = other.mResultCount;
        other.mResultCount = 0;
    }
    return *this;
}
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
    mProgramReady = false;
}

void Expression::push(int value) {
    Entry entry;
    entry.command = CMD_PUSH;
    entry.value = intValue(value);
    mEntries.push_back(entry);
    mProgramReady = false;
}

void Expression::push(float value) {
    Entry entry;
    entry.command = CMD_PUSH;
    entry.value = floatValue(value);
    mEntries.push_back(entry);
    mProgramReady = false;
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
    mProgramReady = false;
    mNames.push_back(std::move(copy));
}

void Expression::clear() {
    mEntries.clear();
    mProgramReady = false;
    mResultCount = 0;
    mNames.clear();
}

const Expression::Entry& Expression::getEntry(unsigned index) const {
    if (index >= mEntries.size())
        throw ::core::IllegalArgumentException("Expression::getEntry: index %u out of range (%u entries)",
                                               index, (unsigned)mEntries.size());
    return mEntries[index];
}

const Expression::Value& Expression::getResult(unsigned index) const {
    if (index >= mResultCount)
        throw ::core::IllegalArgumentException("Expression::getResult: index %u out of range (%u results)",
                                               index, (unsigned)mResultCount);
    return mStack[index];
}

void Expression::throwNoResult() {
    throw ::core::IllegalStateException("Expression::getTopResult: no result");
}

void Expression::compile() {
    mProgram.clear();
    const size_t count = mEntries.size();
    for (size_t i = 0; i < count; ++i) {
        const Entry& entry = mEntries[i];
        mProgram.push_back(entry);
        if (entry.command == CMD_FUNCTION && i + 1 < count) {
            mProgram.push_back(mEntries[++i]); // the argument count, never fused
        } else if (entry.command == CMD_PUSH && i + 1 < count && isArithmetic(mEntries[i + 1].command)) {
            mProgram.back().command = (Command)(mEntries[++i].command + WITH_CONSTANT);
        } else if (entry.command == CMD_VARIABLE && i + 1 < count && isArithmetic(mEntries[i + 1].command)) {
            mProgram.back().command = (Command)(mEntries[++i].command + WITH_VARIABLE);
        }
    }
    mProgramReady = true;
}

unsigned Expression::evaluate(bool resetResults) {
    if (resetResults)
        mResultCount = 0;
    // Every entry pushes at most one value: the working stack above the
    // results never needs more room than this.
    const size_t needed = mResultCount + mEntries.size();
    if (mStack.size() < needed)
        mStack.resize(needed);
    if (!mProgramReady)
        compile();
    long left = run(mProgram.data(), mProgram.data() + mProgram.size(), mStack.data() + mResultCount,
                    mVariableCallback, mFunctionCallback, mArguments);
    if (left > 0)
        mResultCount += (size_t)left;
    return (unsigned)mResultCount;
}

} // namespace parser
} // namespace tarso
