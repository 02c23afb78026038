// passway-crx: the Chromium extension packed for administrators (Chrome's ExtensionInstallForcelist).
//   passway-crx key KEY.pem                         prints the manifest's "key" and the extension ID
//   passway-crx pack KEY.pem EXTENSION.zip OUT.crx  writes the CRX3 file; prints the extension ID
//   passway-crx update-manifest ID VERSION URL     prints the update manifest that offers the CRX at URL
// Exit status: 0 done, 2 wrong arguments, 3 a file or key could not be used.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "ExtensionPackage.h"

namespace {

int usage() {
    std::cerr << "usage: passway-crx key KEY.pem | pack KEY.pem EXTENSION.zip OUT.crx | "
                 "update-manifest ID VERSION URL\n";
    return 2;
}

int fail(const std::string& error) {
    std::cerr << "passway-crx: " << error << "\n";
    return 3;
}

}  // namespace

int main(int argc, char** argv) {
    std::string command = argc > 2 ? argv[1] : "";
    if (command == "key" && argc == 3) {
        ExtensionKey key = readExtensionKey(argv[2]);
        if (!key.ok) return fail(key.error);
        std::cout << key.manifestKey << "\n" << key.id << "\n";
        return 0;
    }
    if (command == "pack" && argc == 5) {
        std::ifstream in(argv[3], std::ios::binary);
        if (!in) return fail(std::string("cannot read ") + argv[3]);
        std::ostringstream zip;
        zip << in.rdbuf();
        std::string error;
        std::string crx = packCrx3(argv[2], zip.str(), error);
        if (crx.empty()) return fail(error);
        std::ofstream out(argv[4], std::ios::binary | std::ios::trunc);
        if (!(out << crx) || !out.flush()) return fail(std::string("cannot write ") + argv[4]);
        std::cout << readExtensionKey(argv[2]).id << "\n";
        return 0;
    }
    if (command == "update-manifest" && argc == 5) {
        std::cout << updateManifest(argv[2], argv[3], argv[4]);
        return 0;
    }
    return usage();
}
