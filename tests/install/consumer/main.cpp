// A program outside the project that uses the installed libraries: MD5 and the hex text (orvane_crypto,
// orvane_utils) and the signed client data (orvane_clientdata over HMAC and base64).
#include <cstdio>
#include <cstring>

#include <ClientData>
#include <Encoding>
#include <MD5>
#include <String>

int main() {
    unsigned char abc[] = {'a', 'b', 'c'};
    unsigned char digest[16];
    CMD5().HashBuffer(digest, abc, 3);
    CString hex = BinToHex(digest, sizeof digest, 0);
    CString signature = signMessage("session=1", "token");
    printf("md5(abc)=%s signature=%s\n", static_cast<const char*>(hex), static_cast<const char*>(signature));
    bool ok = strcmp(hex, "900150983cd24fb0d6963f7d28e17f72") == 0 && signature.GetLength() == 24;
    return ok ? 0 : 1;
}
