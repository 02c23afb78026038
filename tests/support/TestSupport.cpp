#include "TestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

std::string CapturingLog::text() const {
    std::string all;
    for (const std::string& line : m_lines) all += line;
    return all;
}

CommandResult runCommand(const std::vector<std::string>& argv) {
    char out[] = "/tmp/passway-run-XXXXXX", err[] = "/tmp/passway-run-XXXXXX";
    int outFd = mkstemp(out), errFd = mkstemp(err);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(open("/dev/null", O_RDONLY), 0);
        dup2(outFd, 1);
        dup2(errFd, 2);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    CommandResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
    close(outFd), close(errFd), unlink(out), unlink(err);
    return result;
}

TempHome::TempHome() {
    char pattern[] = "/tmp/passway-home-XXXXXX";
    m_path = mkdtemp(pattern);
    if (const char* home = getenv("HOME")) m_savedHome = home;
    setenv("HOME", m_path.c_str(), 1);
}

TempHome::~TempHome() {
    m_savedHome ? setenv("HOME", m_savedHome->c_str(), 1) : unsetenv("HOME");
    runCommand({"/bin/rm", "-rf", m_path});
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0755);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string testDataPath(const std::string& name) {
    return std::string(PASSWAY_TEST_DATA_DIR) + "/" + name;
}

std::string signDigest(const std::string& keyFile, const std::string& digest, const char* digestName) {
    FILE* f = fopen(testDataPath(keyFile).c_str(), "r");
    if (f == nullptr) return "";
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(PEM_read_PrivateKey(f, nullptr, nullptr, nullptr),
                                                            EVP_PKEY_free);
    fclose(f);
    if (!key) return "";
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                    EVP_PKEY_CTX_free);
    std::string signature(static_cast<size_t>(EVP_PKEY_size(key.get())), '\0');
    size_t length = signature.size();
    if (!ctx || EVP_PKEY_sign_init(ctx.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_get_digestbyname(digestName)) <= 0 ||
        EVP_PKEY_sign(ctx.get(), reinterpret_cast<unsigned char*>(&signature[0]), &length,
                      reinterpret_cast<const unsigned char*>(digest.data()), digest.size()) <= 0)
        return "";
    signature.resize(length);
    return signature;
}

std::string opensslMd5(const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr);
    return std::string(reinterpret_cast<char*>(digest), length);
}

std::string opensslBase64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int n =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}
