// Signing with the test keys of tests/data, through OpenSSL, for tests of the signature check.
#ifndef PASSWAY_TESTS_TESTSIGNING_H
#define PASSWAY_TESTS_TESTSIGNING_H

#include <string>

// Path of a file in tests/data.
std::string testDataPath(const std::string& name);

// Raw RSA PKCS #1 v1.5 signature (DigestInfo form) of `digest` with the PEM key in tests/data/`keyFile`;
// `digestName` is "MD5" or "SHA1". Empty on failure.
std::string signDigest(const std::string& keyFile, const std::string& digest, const char* digestName = "MD5");

// MD5 of `data` computed by OpenSSL, 16 raw bytes.
std::string opensslMd5(const std::string& data);

// Base64 of raw bytes, by OpenSSL.
std::string opensslBase64(const std::string& bytes);

#endif
