#include "TestSupport.h"

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

CommandResult runCommand(const std::vector<std::string>& argv, const std::string& input) {
    char out[] = "/tmp/passway-run-XXXXXX", in[] = "/tmp/passway-input-XXXXXX";
    int outFd = mkstemp(out), inFd = mkstemp(in);
    writeFile(in, input);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(inFd, 0);
        dup2(outFd, 1);
        std::vector<char*> args(argv.size() + 1);  // ends with a null
        for (size_t i = 0; i < argv.size(); ++i) args[i] = const_cast<char*>(argv[i].c_str());
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    CommandResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out)};
    close(outFd), unlink(out), close(inFd), unlink(in);
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
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();  // nothing for a folder or a missing file
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
    std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(testDataPath(keyFile).c_str(), "r"),
                                                   BIO_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        file ? PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr, EVP_PKEY_free);
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
    out.resize(static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                                   reinterpret_cast<const unsigned char*>(bytes.data()),
                                                   static_cast<int>(bytes.size()))));
    return out;
}

std::string signatureOf(const std::string& body, const std::string& keyFile) {
    return opensslBase64(signDigest(keyFile, opensslMd5(body)));
}
