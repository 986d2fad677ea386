#include <tmain/core/Parameter.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <tmain/core/Serializer.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace core {

const ::core::Type Parameter::TYPE("tarso::core::Parameter", &NamedObject::TYPE);
const DeserializerEntry Parameter::DESERIALIZER_LIST[1] = {{1, &Parameter::readV1}};
TMAIN_REGISTER_CREATABLE(Parameter);

namespace {
// Float to integer truncates toward zero; beyond the target's range it
// saturates rather than being undefined.
template <class T> T truncated(float f) {
    if (f != f)
        return 0;
    if (f >= (float)std::numeric_limits<T>::max())
        return std::numeric_limits<T>::max();
    if (f <= (float)std::numeric_limits<T>::min())
        return std::numeric_limits<T>::min();
    return (T)f;
}
} // namespace

Parameter::Parameter(const char* name, ParameterType type) : NamedObject(name), mType(PT_NONE) {
    mValue.l = 0;
    reset(type);
}

Parameter::Parameter(const Parameter& other) : NamedObject(other), mType(PT_NONE) {
    mValue.l = 0;
    *this = other;
}

Parameter& Parameter::operator=(const Parameter& other) {
    if (this == &other)
        return *this;
    NamedObject::operator=(other);
    switch (other.mType) {
    case PT_STRING:
        return *this = (const char*)other.mValue.s;
    case PT_OBJECT:
        return *this = other.mObject.get();
    default:
        reset(other.mType);
        memcpy(&mValue, &other.mValue, sizeof mValue);
        return *this;
    }
}

Parameter::~Parameter() {
    reset(PT_NONE);
}

void Parameter::reset(ParameterType type) {
    if (mType == PT_STRING)
        free(mValue.s);
    mObject.reset();
    memset(&mValue, 0, sizeof mValue);
    mType = (unsigned)type <= PT_OBJECT ? type : PT_NONE;
    if (mType == PT_STRING)
        mValue.s = strdup("");
}

Parameter::operator int() const {
    int r = 0;
    switch (mType) {
    case PT_BOOL:
        return mValue.b ? 1 : 0;
    case PT_INT:
        return mValue.i;
    case PT_FLOAT:
        return truncated<int>(mValue.f);
    case PT_STRING:
        return sscanf(mValue.s, "%d", &r) == 1 ? r : 0;
    case PT_VECTOR3:
        return truncated<int>(mValue.v[0]);
    case PT_LONG:
        return (int)(unsigned)(unsigned long long)mValue.l;
    case PT_OBJECT:
        return (int)(uintptr_t)mObject.get();
    default:
        return 0;
    }
}

Parameter::operator float() const {
    float r = 0;
    switch (mType) {
    case PT_BOOL:
        return mValue.b ? 1.0f : 0.0f;
    case PT_INT:
        return (float)mValue.i;
    case PT_FLOAT:
        return mValue.f;
    case PT_STRING:
        return sscanf(mValue.s, "%f", &r) == 1 ? r : 0.0f;
    case PT_VECTOR3:
        return mValue.v[0];
    case PT_LONG:
        return (float)mValue.l;
    default:
        return 0.0f;
    }
}

// Deliberately "greater than zero": negative numbers are false.
Parameter::operator bool() const {
    switch (mType) {
    case PT_BOOL:
        return mValue.b;
    case PT_INT:
        return mValue.i > 0;
    case PT_FLOAT:
        return mValue.f > 0.0f;
    case PT_STRING:
        return strcmp(mValue.s, "true") == 0;
    case PT_VECTOR3:
        return mValue.v[0] > 0.0f;
    case PT_LONG:
        return mValue.l > 0;
    case PT_OBJECT:
        return mObject.get() != nullptr;
    default:
        return false;
    }
}

Parameter::operator long long() const {
    long long r = 0;
    switch (mType) {
    case PT_BOOL:
        return mValue.b ? 1 : 0;
    case PT_INT:
        return mValue.i;
    case PT_FLOAT:
        return truncated<long long>(mValue.f);
    case PT_STRING:
        return sscanf(mValue.s, "%lld", &r) == 1 ? r : 0;
    case PT_VECTOR3:
        return truncated<long long>(mValue.v[0]);
    case PT_LONG:
        return mValue.l;
    case PT_OBJECT:
        return (long long)(uintptr_t)mObject.get();
    default:
        return 0;
    }
}

Parameter::operator math::Vector3() const {
    math::Vector3 r = math::Vector3::ZERO;
    switch (mType) {
    case PT_BOOL:
        return mValue.b ? math::Vector3::ONE : math::Vector3::ZERO;
    case PT_INT:
        return math::Vector3((float)mValue.i);
    case PT_FLOAT:
        return math::Vector3(mValue.f);
    case PT_STRING:
        sscanf(mValue.s, "%f %f %f", &r.x, &r.y, &r.z);
        return r;
    case PT_VECTOR3:
        return math::Vector3(mValue.v[0], mValue.v[1], mValue.v[2]);
    case PT_LONG:
        return math::Vector3((float)mValue.l);
    default:
        return r;
    }
}

Parameter::operator const char*() const {
    switch (mType) {
    case PT_BOOL:
        return mValue.b ? "true" : "false";
    case PT_INT:
        return "<int>";
    case PT_FLOAT:
        return "<float>";
    case PT_STRING:
        return mValue.s;
    case PT_VECTOR3:
        return "<Vector3>";
    case PT_LONG:
        return "<long>";
    case PT_OBJECT:
        return "<object>";
    default:
        return "";
    }
}

Parameter::operator Object*() const {
    return mType == PT_OBJECT ? mObject.get() : nullptr;
}

Parameter& Parameter::operator=(int value) {
    reset(PT_INT);
    mValue.i = value;
    return *this;
}
Parameter& Parameter::operator=(float value) {
    reset(PT_FLOAT);
    mValue.f = value;
    return *this;
}
Parameter& Parameter::operator=(bool value) {
    reset(PT_BOOL);
    mValue.b = value;
    return *this;
}
Parameter& Parameter::operator=(long long value) {
    reset(PT_LONG);
    mValue.l = value;
    return *this;
}
Parameter& Parameter::operator=(const math::Vector3& value) {
    reset(PT_VECTOR3);
    mValue.v[0] = value.x;
    mValue.v[1] = value.y;
    mValue.v[2] = value.z;
    return *this;
}
Parameter& Parameter::operator=(const char* value) {
    char* copy = strdup(value ? value : ""); // value may point into the old string
    reset(PT_NONE);
    mType = PT_STRING;
    mValue.s = copy;
    return *this;
}
Parameter& Parameter::operator=(Object* value) {
    ::core::SmartPtr<Object> keep(value);
    reset(PT_OBJECT);
    mObject = keep;
    return *this;
}

std::string Parameter::toString() const {
    return NamedObject::toString() + "<type=" + std::to_string((int)mType) + ">";
}

Object* Parameter::clone(CloningOptions& options) const {
    Parameter* copy = new Parameter();
    _clone(copy, options);
    return copy;
}

// The object value is shared, not cloned: a parameter refers to it.
void Parameter::_clone(Object* target, CloningOptions& options) const {
    if (target != this)
        *static_cast<Parameter*>(target) = *this;
    NamedObject::_clone(target, options);
}

// Layout: serial version 1, the named object, the kind as an int, then the
// value: bool, int, float, a length-prefixed string, three floats, a 64-bit
// integer as two ints (low half first) or an object record.
void Parameter::serialize(stream::OutputStream* out, Serializer* serializer) const {
    checkWrite(writeRawSUID(out, mSUID), "writeSUID");
    NamedObject::serialize(out, serializer);
    bool ok = out->write((int)mType);
    switch (mType) {
    case PT_BOOL:
        ok = ok && out->write(mValue.b);
        break;
    case PT_INT:
        ok = ok && out->write(mValue.i);
        break;
    case PT_FLOAT:
        ok = ok && out->write(mValue.f);
        break;
    case PT_STRING:
        ok = ok && out->write(std::string(mValue.s));
        break;
    case PT_VECTOR3:
        ok = ok && out->write(mValue.v[0]) && out->write(mValue.v[1]) && out->write(mValue.v[2]);
        break;
    case PT_LONG:
        ok = ok && out->write((unsigned)(unsigned long long)mValue.l) &&
             out->write((unsigned)((unsigned long long)mValue.l >> 32));
        break;
    case PT_OBJECT:
        checkWrite(ok, "mType");
        serializer->writeObject(mObject.get(), out, true);
        break;
    default:
        break;
    }
    checkWrite(ok, "mValue");
}

void Parameter::readV1(Serializable* object, stream::InputStream* in, Serializer* serializer) {
    Parameter* self = static_cast<Parameter*>(object);
    self->NamedObject::deserialize(in, serializer);
    self->readValue(in, serializer);
}

void Parameter::readValue(stream::InputStream* in, Serializer* serializer) {
    Parameter* self = this;
    int type = 0;
    self->checkRead(in->read(type) && type >= PT_NONE && type <= PT_OBJECT, "mType");
    bool ok = true;
    switch (type) {
    case PT_BOOL: {
        bool b = false;
        ok = in->read(b);
        *self = b;
        break;
    }
    case PT_INT: {
        int i = 0;
        ok = in->read(i);
        *self = i;
        break;
    }
    case PT_FLOAT: {
        float f = 0;
        ok = in->read(f);
        *self = f;
        break;
    }
    case PT_STRING: {
        std::string s;
        ok = in->read(s);
        *self = s.c_str();
        break;
    }
    case PT_VECTOR3: {
        math::Vector3 v;
        ok = in->read(v.x) && in->read(v.y) && in->read(v.z);
        *self = v;
        break;
    }
    case PT_LONG: {
        unsigned lo = 0, hi = 0;
        ok = in->read(lo) && in->read(hi);
        *self = (long long)(((unsigned long long)hi << 32) | lo);
        break;
    }
    case PT_OBJECT:
        *self = static_cast<Object*>(serializer->readObject(in, Object::TYPE));
        break;
    default:
        self->reset(PT_NONE);
    }
    self->checkRead(ok, "mValue");
}

void Parameter::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void Parameter::deserializeLegacy0(stream::InputStream* in, Serializer* serializer) {
    NamedObject::deserializeLegacy0(in, serializer);
    readValue(in, serializer);
}

void Parameter::deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) {
    getDeserializer(serialUID)(this, in, serializer);
}

} // namespace core
} // namespace tarso
