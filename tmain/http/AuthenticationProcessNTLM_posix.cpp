// NTLM through GSSAPI with the gss-ntlmssp mechanism, which exchanges the raw
// NTLMSSP messages (SPNEGO would wrap them).
#include <tmain/http/detail/NTLMSecurity.h>

#include <gssapi/gssapi.h>

namespace tarso {
namespace http {
namespace detail {

namespace {

// 1.3.6.1.4.1.311.2.2.10
gss_OID_desc NTLMSSP_MECHANISM = {10, (void*)"\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a"};

/// "<major text>[: <minor text>] (major N, minor M)"
std::string describe(OM_uint32 major, OM_uint32 minor) {
    std::string text;
    OM_uint32 ignored;
    for (int type : {GSS_C_GSS_CODE, GSS_C_MECH_CODE}) {
        OM_uint32 value = type == GSS_C_GSS_CODE ? major : minor;
        if (type == GSS_C_MECH_CODE && minor == 0)
            break;
        OM_uint32 context = 0;
        do {
            gss_buffer_desc message = GSS_C_EMPTY_BUFFER;
            if (GSS_ERROR(gss_display_status(&ignored, value, type, &NTLMSSP_MECHANISM, &context, &message)))
                break;
            if (!text.empty())
                text += ": ";
            text.append((const char*)message.value, message.length);
            gss_release_buffer(&ignored, &message);
        } while (context != 0);
    }
    return text + " (major " + std::to_string(major) + ", minor " + std::to_string(minor) + ")";
}

} // namespace

struct NTLMSecurity::Native {
    gss_cred_id_t credentials = GSS_C_NO_CREDENTIAL;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
};

NTLMSecurity::NTLMSecurity() : mNative(new Native()) {}

NTLMSecurity::~NTLMSecurity() {
    deleteContext();
    freeCredentials();
}

bool NTLMSecurity::acquireCredentials(int& code) {
    freeCredentials();
    gss_OID_set_desc mechanisms = {1, &NTLMSSP_MECHANISM};
    OM_uint32 minor = 0;
    OM_uint32 major = gss_acquire_cred(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms, GSS_C_INITIATE,
                                       &mNative->credentials, nullptr, nullptr);
    code = (int)major;
    if (GSS_ERROR(major)) {
        mNative->credentials = GSS_C_NO_CREDENTIAL;
        return false;
    }
    return true;
}

NTLMSecurity::Result NTLMSecurity::initializeContext(const std::string& targetHost, const void* input,
                                                     unsigned inputLength, std::vector<unsigned char>& token,
                                                     int& code, std::string& description) {
    token.clear();
    description.clear();
    if (!input)
        deleteContext();

    OM_uint32 minor = 0, ignored;
    std::string service = "HTTP@" + targetHost;
    gss_buffer_desc nameText = {service.size(), (void*)service.data()};
    gss_name_t target = GSS_C_NO_NAME;
    OM_uint32 major = gss_import_name(&minor, &nameText, GSS_C_NT_HOSTBASED_SERVICE, &target);
    if (!GSS_ERROR(major)) {
        gss_buffer_desc in = {input ? inputLength : 0, const_cast<void*>(input)};
        gss_buffer_desc out = GSS_C_EMPTY_BUFFER;
        major = gss_init_sec_context(&minor, mNative->credentials, &mNative->context, target,
                                     &NTLMSSP_MECHANISM, 0, GSS_C_INDEFINITE, GSS_C_NO_CHANNEL_BINDINGS, &in,
                                     nullptr, &out, nullptr, nullptr);
        if (out.length)
            token.assign((const unsigned char*)out.value, (const unsigned char*)out.value + out.length);
        gss_release_buffer(&ignored, &out);
        gss_release_name(&ignored, &target);
    }
    code = (int)major;
    if (GSS_ERROR(major)) {
        description = describe(major, minor);
        token.clear();
        deleteContext();
        return RESULT_FAILED;
    }
    return (major & GSS_S_CONTINUE_NEEDED) ? RESULT_CONTINUE : RESULT_OK;
}

bool NTLMSecurity::hasCredentials() const {
    return mNative->credentials != GSS_C_NO_CREDENTIAL;
}

bool NTLMSecurity::hasContext() const {
    return mNative->context != GSS_C_NO_CONTEXT;
}

void NTLMSecurity::deleteContext() {
    if (mNative->context != GSS_C_NO_CONTEXT) {
        OM_uint32 minor;
        gss_delete_sec_context(&minor, &mNative->context, GSS_C_NO_BUFFER);
        mNative->context = GSS_C_NO_CONTEXT;
    }
}

void NTLMSecurity::freeCredentials() {
    if (mNative->credentials != GSS_C_NO_CREDENTIAL) {
        OM_uint32 minor;
        gss_release_cred(&minor, &mNative->credentials);
        mNative->credentials = GSS_C_NO_CREDENTIAL;
    }
}

} // namespace detail
} // namespace http
} // namespace tarso
