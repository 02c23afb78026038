// Signing and checking client packages: the operator's side of the plug-in's signature check.
// A package's signature is the RSA PKCS #1 v1.5 signature (DigestInfo form) of its MD5 digest, as base64.
#ifndef PASSWAY_TOOLS_PACKAGESIGNING_H
#define PASSWAY_TOOLS_PACKAGESIGNING_H

#include <string>

// The outcome of a step; `error` says what went wrong in words for the operator.
struct SigningResult {
    bool ok = false;
    std::string value;  // the digest (raw), or the signature (base64), by step
    std::string error;
};

// MD5 of the file, read in 64 KiB pieces (any size).
SigningResult digestFile(const std::string& path);

// Signs a 16-byte MD5 digest with the RSA private key in the PEM file `keyPath`.
SigningResult signDigest(const std::string& keyPath, const std::string& digest);

// Checks a base64 signature of a digest against the RSA key of the PEM certificate (or public key) in
// `certPath`. ok is true when it verifies; `error` is set only when the check could not be made.
SigningResult verifyDigest(const std::string& certPath, const std::string& digest, const std::string& signatureB64);

#endif
