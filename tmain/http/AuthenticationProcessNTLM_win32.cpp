// NTLM through SSPI: the current user's credentials and a client context of
// the "NTLM" package, whose tokens are the raw NTLMSSP messages.
#include <tmain/http/detail/NTLMSecurity.h>

#define SECURITY_WIN32
#include <windows.h>

#include <security.h>
#include <sspi.h>

#include <cstdio>

namespace tarso {
namespace http {
namespace detail {

namespace {

char NTLM_PACKAGE[] = "NTLM";

/// "<system text> (0x%08X)"
std::string describe(SECURITY_STATUS status) {
    char buffer[512] = "";
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, NULL, (DWORD)status,
                             0, buffer, sizeof(buffer), NULL);
    std::string text(buffer, n);
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    char code[32];
    snprintf(code, sizeof(code), "0x%08lX", (unsigned long)status);
    return text.empty() ? std::string("security status ") + code : text + " (" + code + ")";
}

} // namespace

struct NTLMSecurity::Native {
    CredHandle credentials;
    CtxtHandle context;
    bool haveCredentials = false;
    bool haveContext = false;
};

NTLMSecurity::NTLMSecurity() : mNative(new Native()) {}

NTLMSecurity::~NTLMSecurity() {
    deleteContext();
    freeCredentials();
}

bool NTLMSecurity::acquireCredentials(int& code) {
    freeCredentials();
    TimeStamp expiry;
    SECURITY_STATUS status = AcquireCredentialsHandleA(NULL, NTLM_PACKAGE, SECPKG_CRED_OUTBOUND, NULL, NULL,
                                                       NULL, NULL, &mNative->credentials, &expiry);
    code = (int)status;
    mNative->haveCredentials = status == SEC_E_OK;
    return mNative->haveCredentials;
}

NTLMSecurity::Result NTLMSecurity::initializeContext(const std::string& targetHost, const void* input,
                                                     unsigned inputLength, std::vector<unsigned char>& token,
                                                     int& code, std::string& description) {
    token.clear();
    description.clear();
    if (!input)
        deleteContext();
    if (!mNative->haveCredentials) {
        code = (int)SEC_E_NO_CREDENTIALS;
        description = describe(SEC_E_NO_CREDENTIALS);
        return RESULT_FAILED;
    }

    SecBuffer inBuffer = {inputLength, SECBUFFER_TOKEN, const_cast<void*>(input)};
    SecBufferDesc in = {SECBUFFER_VERSION, 1, &inBuffer};
    // SSPI allocates the token, so that a message of any size fits.
    SecBuffer outBuffer = {0, SECBUFFER_TOKEN, NULL};
    SecBufferDesc out = {SECBUFFER_VERSION, 1, &outBuffer};
    std::string target = "HTTP/" + targetHost;
    ULONG attributes = 0;
    TimeStamp expiry;
    SECURITY_STATUS status = InitializeSecurityContextA(
        &mNative->credentials, mNative->haveContext ? &mNative->context : NULL, &target[0],
        ISC_REQ_CONNECTION | ISC_REQ_ALLOCATE_MEMORY, 0, SECURITY_NATIVE_DREP, input ? &in : NULL, 0,
        &mNative->context, &out, &attributes, &expiry);
    if (outBuffer.pvBuffer) {
        token.assign((unsigned char*)outBuffer.pvBuffer,
                     (unsigned char*)outBuffer.pvBuffer + outBuffer.cbBuffer);
        FreeContextBuffer(outBuffer.pvBuffer);
    }
    code = (int)status;
    switch (status) {
    case SEC_E_OK:
        mNative->haveContext = true;
        return RESULT_OK;
    case SEC_I_CONTINUE_NEEDED:
        mNative->haveContext = true;
        return RESULT_CONTINUE;
    case SEC_I_COMPLETE_NEEDED:
        mNative->haveContext = true;
        return RESULT_COMPLETE_NEEDED;
    case SEC_I_COMPLETE_AND_CONTINUE:
        mNative->haveContext = true;
        return RESULT_COMPLETE_AND_CONTINUE;
    default:
        description = describe(status);
        token.clear();
        if (!input)
            mNative->haveContext = false; // a failed first call makes no context
        deleteContext();
        return RESULT_FAILED;
    }
}

bool NTLMSecurity::hasCredentials() const {
    return mNative->haveCredentials;
}

bool NTLMSecurity::hasContext() const {
    return mNative->haveContext;
}

void NTLMSecurity::deleteContext() {
    if (mNative->haveContext) {
        DeleteSecurityContext(&mNative->context);
        mNative->haveContext = false;
    }
}

void NTLMSecurity::freeCredentials() {
    if (mNative->haveCredentials) {
        FreeCredentialsHandle(&mNative->credentials);
        mNative->haveCredentials = false;
    }
}

} // namespace detail
} // namespace http
} // namespace tarso
