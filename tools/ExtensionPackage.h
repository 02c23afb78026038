// The Chromium extension's packed form for administrators: CRX3 files signed with the deployment's
// extension key, the key and ID the manifest and the host manifests carry, and the update manifest that
// Chrome's ExtensionInstallForcelist policy points at.
#ifndef PASSWAY_TOOLS_EXTENSIONPACKAGE_H
#define PASSWAY_TOOLS_EXTENSIONPACKAGE_H

#include <string>

// The public half of an RSA private key (PEM file `keyPath`), as the manifest's "key" wants it, and the
// extension ID that it gives. `error` says what went wrong when `ok` is false.
struct ExtensionKey {
    bool ok = false;
    std::string publicKeyDer;  // SubjectPublicKeyInfo, DER
    std::string manifestKey;   // base64 of publicKeyDer
    std::string id;            // 32 letters a-p: the first 16 bytes of SHA-256 of publicKeyDer
    std::string error;
};
ExtensionKey readExtensionKey(const std::string& keyPath);

// A CRX3 file of the zip archive `zip`, signed (RSA, SHA-256) with the key; empty with `error` set on failure.
std::string packCrx3(const std::string& keyPath, const std::string& zip, std::string& error);

// The update manifest (gupdate XML) that offers version `version` of extension `id` at `codebase`.
std::string updateManifest(const std::string& id, const std::string& version, const std::string& codebase);

#endif
