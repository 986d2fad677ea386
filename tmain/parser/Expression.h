#pragma once
#include <memory>
#include <tmain/Export.h>
#include <tmain/foundation/Callback.h>
#include <vector>

namespace tarso {
namespace parser {

/// A compiled expression: a postfix program of entries run on a value stack.
/// Identifiers and function calls are resolved through callbacks at every
/// evaluation. Copies own their names.
///
/// Evaluation rules: int with int stays int and wraps modulo 2^32 (also for
/// negation; INT_MIN / -1 is INT_MIN); a float on either side makes a float
/// (IEEE, so x / 0.0 is an infinity); arithmetic with a string gives the int
/// 0. Logical operators test the raw value (any non-zero float bit pattern,
/// -0.0 included, is true; a string is true) and give the int 0 or 1.
/// Comparisons give 0 or 1: numbers compare numerically (an int meets a float
/// as a float), two strings by strcmp, a string and a number are unequal
/// (only "!=" gives 1). Arguments reach the function callback in reverse
/// order: index 0 is the last argument.
///
/// Evaluation stops at the first failure: an int division by zero, a
/// callback that is not set or does not report success, an operator without
/// enough operands of this evaluation, a call without its count entry. The
/// values this evaluation pushed are then dropped, so with resetResults the
/// result count is 0. A well-formed expression leaves exactly one result.
/// Callbacks must not use the expression they are called from.
class TMAIN_API Expression {
public:
    enum Command : unsigned {
        CMD_PUSH = 1,
        CMD_VARIABLE = 2,
        CMD_FUNCTION = 3,
        CMD_ADD = 4,
        CMD_SUB = 5,
        CMD_MUL = 6,
        CMD_DIV = 7,
        CMD_NOP = 8,
        CMD_NEG = 9,
        CMD_AND = 10,
        CMD_OR = 11,
        CMD_NOT = 12,
        CMD_EQ = 13,
        CMD_NE = 14,
        CMD_GT = 15,
        CMD_GE = 16,
        CMD_LT = 17,
        CMD_LE = 18,
    };

    struct Value {
        static constexpr unsigned TYPE_INT = 1;
        static constexpr unsigned TYPE_FLOAT = 2;
        /// A string or a name; the text is not owned by the value.
        static constexpr unsigned TYPE_STRING = 3;

        unsigned type;
        union {
            int intValue;
            float floatValue;
            const char* stringValue;
        } value;

        Value() : type(TYPE_INT) { value.stringValue = nullptr; }
    };

    struct Entry {
        Command command;
        Value value;
    };

    /// (name, value to fill, success flag to set).
    typedef ::core::Callback<void, const char*, Value&, bool&> VariableCallback;
    /// (name, arguments, argument count, result to fill, success flag to set).
    typedef ::core::Callback<void, const char*, Value*, unsigned, Value&, bool&> FunctionCallback;

    Expression();
    Expression(const Expression& other);
    Expression(Expression&& other) noexcept;
    Expression& operator=(const Expression& other);
    Expression& operator=(Expression&& other) noexcept;
    ~Expression();

    /// An entry of that command with the int 0 as its value.
    void push(Command command);
    /// Push entries of an int or a float.
    void push(int value);
    void push(float value);
    /// An entry naming a variable or function (the name is copied).
    void push(const char* name, Command command);
    /// Drops the entries and the results.
    void clear();
    unsigned getEntryCount() const { return (unsigned)mEntries.size(); }
    /// Throws core::IllegalArgumentException for an index out of range.
    const Entry& getEntry(unsigned index) const;

    void setVariableCallback(const VariableCallback& callback) { mVariableCallback = callback; }
    void setFunctionCallback(const FunctionCallback& callback) { mFunctionCallback = callback; }

    /// Runs the program (emptying the results first when asked) and returns
    /// the number of results.
    unsigned evaluate(bool resetResults);
    unsigned getResultCount() const { return (unsigned)mResultCount; }
    /// Throws core::IllegalArgumentException for an index out of range.
    const Value& getResult(unsigned index) const;
    /// The last result; throws core::IllegalStateException when there is none.
    const Value& getTopResult() const {
        if (mResultCount == 0)
            throwNoResult();
        return mStack[mResultCount - 1];
    }

private:
    [[noreturn]] static void throwNoResult();
    void copyNames();
    /// Builds the program evaluate runs from the entries: the same postfix
    /// program with a constant or variable operand and the arithmetic operator
    /// after it fused into one entry.
    void compile();

    std::vector<Entry> mEntries;
    VariableCallback mVariableCallback;
    FunctionCallback mFunctionCallback;
    std::vector<std::unique_ptr<char[]>> mNames;
    std::vector<Value> mArguments;
    std::vector<Entry> mProgram;
    bool mProgramReady = false;
    /// The results, then the working stack of an evaluation right above them
    /// (one slot per entry): the values an evaluation leaves are already in
    /// place as its results.
    std::vector<Value> mStack;
    size_t mResultCount = 0;
};

} // namespace parser
} // namespace tarso
