#pragma once
/// The platform's NTLM security service under AuthenticationProcessNTLM:
/// AuthenticationProcessNTLM.cpp holds the exchange, the _posix (GSSAPI with
/// the NTLMSSP mechanism) and _win32 (SSPI) files implement this class.

#include <memory>
#include <string>
#include <vector>

namespace tarso {
namespace http {
namespace detail {

/// Credentials and one client security context. Not thread-safe.
class NTLMSecurity {
public:
    /// Outcome of a context step, in SSPI's terms.
    enum Result {
        RESULT_OK,                    ///< SEC_E_OK / GSS_S_COMPLETE: last token made
        RESULT_CONTINUE,              ///< SEC_I_CONTINUE_NEEDED / GSS_S_CONTINUE_NEEDED
        RESULT_COMPLETE_NEEDED,       ///< SEC_I_COMPLETE_NEEDED (SSPI only)
        RESULT_COMPLETE_AND_CONTINUE, ///< SEC_I_COMPLETE_AND_CONTINUE (SSPI only)
        RESULT_FAILED
    };

    NTLMSecurity();
    /// Deletes the context and frees the credentials.
    ~NTLMSecurity();
    NTLMSecurity(const NTLMSecurity&) = delete;
    NTLMSecurity& operator=(const NTLMSecurity&) = delete;

    /// Outbound credentials of the current user, replacing held ones.
    /// Win32: AcquireCredentialsHandleA(NULL, "NTLM", SECPKG_CRED_OUTBOUND).
    /// POSIX: gss_acquire_cred(GSS_C_NO_NAME, {NTLMSSP}, GSS_C_INITIATE), which
    /// takes the user from NTLMUSER or USER and the password from the file
    /// named by NTLM_USER_FILE. On failure `code` is the system status.
    bool acquireCredentials(int& code);

    /// One context step for the service "HTTP@<targetHost>": without input it
    /// starts a new context (deleting a held one) and makes the negotiation
    /// token; with the server's challenge it makes the authentication token.
    /// The whole token goes to `token`, whatever its size. On failure `code`
    /// is the system status (the GSS major status on POSIX) and `description`
    /// its text.
    /// Win32: InitializeSecurityContextA(ISC_REQ_CONNECTION, SECURITY_NATIVE_DREP).
    /// POSIX: gss_init_sec_context with the NTLMSSP mechanism (1.3.6.1.4.1.311.2.2.10).
    Result initializeContext(const std::string& targetHost, const void* input, unsigned inputLength,
                             std::vector<unsigned char>& token, int& code, std::string& description);

    bool hasCredentials() const;
    bool hasContext() const;
    /// Win32: DeleteSecurityContext. POSIX: gss_delete_sec_context.
    void deleteContext();
    /// Win32: FreeCredentialsHandle. POSIX: gss_release_cred.
    void freeCredentials();

private:
    struct Native;
    std::unique_ptr<Native> mNative;
};

} // namespace detail
} // namespace http
} // namespace tarso
