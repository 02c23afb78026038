// passway-sign: signs client packages for a portal, and checks signatures.
#include <cstdio>
#include <cstring>
#include <string>

#include "PackageSigning.h"

namespace {

// Exit codes.
enum { kOk = 0, kNotVerified = 1, kUsage = 2, kError = 3 };

const char kUsageText[] =
    "usage: passway-sign KEY.pem PACKAGE\n"
    "       passway-sign --verify CERT.pem PACKAGE SIGNATURE\n"
    "\n"
    "Signs a client package for the portal, or checks a signature.\n"
    "\n"
    "  KEY.pem     the RSA private key whose certificate is compiled into the plug-in\n"
    "  PACKAGE     the client package (the installer the portal serves); read in pieces, any size\n"
    "  CERT.pem    a certificate or public key in PEM form\n"
    "  SIGNATURE   the base64 text of the signature, as given in the 'signature' embed parameter\n"
    "\n"
    "Signing prints the text for the 'signature' embed parameter: the base64 of the RSA PKCS #1 v1.5\n"
    "signature of the package's MD5 digest.\n"
    "\n"
    "Exit status: 0 signed / verified, 1 the signature does not verify, 2 wrong arguments,\n"
    "3 a file or key could not be used.\n";

int usage(const char* problem) {
    if (problem != nullptr) fprintf(stderr, "passway-sign: %s\n\n", problem);
    fputs(kUsageText, problem != nullptr ? stderr : stdout);
    return problem != nullptr ? kUsage : kOk;
}

int fail(const std::string& error) {
    fprintf(stderr, "passway-sign: %s\n", error.c_str());
    return kError;
}

int sign(const char* keyPath, const char* packagePath) {
    SigningResult digest = digestFile(packagePath);
    if (!digest.ok) return fail(digest.error);
    SigningResult signature = signDigest(keyPath, digest.value);
    if (!signature.ok) return fail(signature.error);
    printf("%s\n", signature.value.c_str());
    return kOk;
}

int verify(const char* certPath, const char* packagePath, const char* signatureB64) {
    SigningResult digest = digestFile(packagePath);
    if (!digest.ok) return fail(digest.error);
    SigningResult check = verifyDigest(certPath, digest.value, signatureB64);
    if (!check.error.empty()) return fail(check.error);
    if (!check.ok) {
        fprintf(stderr, "passway-sign: the signature does not verify for '%s'\n", packagePath);
        return kNotVerified;
    }
    printf("verified: %s\n", packagePath);
    return kOk;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) return usage(nullptr);
    if (argc >= 2 && strcmp(argv[1], "--verify") == 0) {
        if (argc != 5) return usage("--verify takes CERT.pem, PACKAGE and SIGNATURE");
        return verify(argv[2], argv[3], argv[4]);
    }
    if (argc != 3 || argv[1][0] == '-') return usage("expected KEY.pem and PACKAGE");
    return sign(argv[1], argv[2]);
}
