#pragma once
#include <tmain/core/NamedObject.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/math/Vector3.h>

namespace tarso {
namespace core {

/// A named value of one of seven kinds with lenient conversions between the
/// kinds. Assigning a value makes its kind the parameter's kind; an object
/// value is held by a counted reference.
class TMAIN_API Parameter : public NamedObject {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(1, 1)
public:
    enum ParameterType {
        PT_NONE = 0,
        PT_BOOL = 1,
        PT_INT = 2,
        PT_FLOAT = 3,
        PT_STRING = 4,
        PT_VECTOR3 = 5,
        PT_LONG = 6,
        PT_OBJECT = 7
    };

    /// The value starts as the kind's zero ("" for a string).
    explicit Parameter(const char* name = "", ParameterType type = PT_NONE);
    Parameter(const Parameter& other);
    Parameter& operator=(const Parameter& other);
    ~Parameter() override;

    ParameterType getValueType() const { return mType; }

    // Conversions: anything without a meaning for the kind gives 0, false,
    // "" or the zero vector. Numbers count as true only when above zero.
    operator int() const;
    operator float() const;
    operator bool() const;
    operator long long() const;
    operator math::Vector3() const;
    /// The string itself, "true"/"false", or the kind's placeholder
    /// ("<int>", "<float>", "<Vector3>", "<long>", "<object>").
    operator const char*() const;
    operator Object*() const;

    Parameter& operator=(int value);
    Parameter& operator=(float value);
    Parameter& operator=(bool value);
    Parameter& operator=(long long value);
    Parameter& operator=(const math::Vector3& value);
    /// Copies the text; null stores "".
    Parameter& operator=(const char* value);
    Parameter& operator=(Object* value);

    std::string toString() const override;
    using Object::clone;
    Object* clone(CloningOptions& options) const override;
    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    void _clone(Object* target, CloningOptions& options) const override;

private:
    void reset(ParameterType type);
    void readValue(stream::InputStream* in, Serializer* serializer);
    static void readV1(Serializable* object, stream::InputStream* in, Serializer* serializer);

    ParameterType mType;
    union {
        bool b;
        int i;
        float f;
        char* s;
        float v[3];
        long long l;
    } mValue;
    ::core::SmartPtr<Object> mObject;
};

} // namespace core
} // namespace tarso
