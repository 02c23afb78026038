// CSignature::VerifySignature on any signature text: never accepts, never misbehaves.
#include "FuzzInput.h"
#include "Signature"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CSignature* check = new CSignature();  // lives for the whole run
    std::string text = asText(data, size);
    // The MD5 digest of the empty package, as the plug-in passes it.
    if (check->VerifySignature(text.c_str(), "1B2M2Y8AsgTpgAmY7PhCfg==")) __builtin_trap();
    check->DecryptSignature(text.c_str());
    return 0;
}
