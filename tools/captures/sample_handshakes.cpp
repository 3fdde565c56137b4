// The first messages of TLS and QUIC.

#include "tools/captures/sample_flows.h"

namespace test {

namespace {

// A complete Initial packet, made once. Its keys are derived from the destination connection id
// 8394c8f03e515708 as in RFC 9001, appendix A: HKDF-Expand-Label of SHA-256 with the version 1 salt, then
// AES-128-GCM over one CRYPTO frame (a TLS 1.3 ClientHello with the server name "quic.example.net" and the
// application protocol "h3") padded to 1200 bytes, packet number 0 in four bytes, header protection on.
constexpr const char* QUIC_INITIAL =
    "c500000001088394c8f03e5157080811223344556677880044966fc5f74346b451689b7ca389c0a54f94c48b73c6241718f7"
    "a15b1b16bf79af7f883514a11a62fc775e106b44620827fb17e5e566eb116bd631e3c576a4ddc58b22691423db25329bd766"
    "f6dc0331e119f452db35acbe32e89df8884d6500df4921a8040486e12dfe681951323c99fd135c4b67f0beec26c3c59b4bee"
    "8b48c609866d7538f73ceae073b47f165e50312c54a3cca4431ec0df71fc526200e3573f1a9183144ec2773350775afccfc1"
    "750a6b322b7dfb8dc00ba396579e770b3d476eda129909e271445ddf02025ea00c2d0259f618bf53904afa456dccfde05f3c"
    "9885aab414419ab18308ebca313228235cf156a8f1aa9f695e2ea8751aa89ee3d60eeea95a3e85ea7fc663b48e5304bf7c7a"
    "618e44bf69067a5912b11c84fb9ccc668b8e43cc198870bd8308279b5021a13addd6098431413dca76e46560b52a544c090f"
    "aaf69b7afbbb59c64ae4b8d0097b1e14258d0c460526fc25761367a87838c2c978e45a4f7ba01f7d22054407116b3c15e9d2"
    "ee51bd3ce305c69ebb9df2b65d731358e3c424462fa431439888ba4f17e8e4635da8c7809cefa7ccb05a7c22a1dffa46903a"
    "955f4b06ddd9ed367c017a3fcdaf51eb4482cffffabcffab26604871e64508d2ce2b89e61a982efdcfad27fea65e93e69362"
    "0bcc92d7e862d6dd8a79a993489056aeff4abe9ff7ef19901d11f42d0e8fc1e93aac3d7e197f42d785aa00f90348c4a4aa1f"
    "310351cda3d064abd9ef561001f37071a84a70bf416ffce1b06c4fae8a14119176093460be2223db2bdc971cc9e46b5f5866"
    "abf8631b9d1e09ef39b278ca436191c3b708290bfd459f7f3267a72bee7ae3e478b087b73ede75f6844da2abbfe46ced45a6"
    "5521a895496ea16da2b85cc7db738a0d500896a070a3be60833c3fc75b4bf2641df9113d3d6cca42d5e8c94203301767ab43"
    "3c28827a52f1a8e89ea6a62280c2b84872c92427177e05a9e968ba0baa7c0797c9f1ea63afd605fdba4734e9929784284f23"
    "a1868466253408e980827830b1f5cabb513975596e2e4b2b4aa34d14f6bb695674219e805658f3362f2eca475d08b84baf96"
    "62ab91361c44b35b0724fbd07dcfc1ff68369ba9fc60d3348bfb5f2978874cb925e3b51c36e0b2ae85f985d22304ee495f72"
    "c076a3dbb6b3bd5faa2a41268f61b96eca9d1f283f566f4afb6e36fc070c7ba5e8a72a2cebecaab613e0301fcaa9cec2ce20"
    "33fa2d170137fd56a27febc1a0031997e1ce206bcaf606b442c166e26fc81f78edf743dae67b91a02f4e1fc6aa4219e47dc9"
    "19743de4f2b7399860298712fcf82f798c5b8fc32553ac6639836fae63e64b04fe3446eb09c376e8167a31cb2db62eba9c0d"
    "531d39588fade1f7a2998a08e323f0d683871d43882aba2fcca4ed81319bb1b3ef9247dd04875601b96bec45b7af2c9b7496"
    "9ec30dfd5305ffff2ad690c32d3f6f3bf203169b0acba5ced76c1fdc0670f4390c22ff75968104fd4ab5aa7a3fa0eacbe3b7"
    "fbd24f43063b33080504b8050b8680655ca4d991bbc88cbbfd5c323f9a50e8155795e3176899e561618fcf38e2fe3b053ca5"
    "feb97f0aa5461d42a6227467b967d30c2e89726382ed75f0a381c21f685e6f7af1e9bc03ae4da3e798217c0515055e3d0c51";
constexpr uint32_t TLS_1_0 = 0x0301, TLS_1_2 = 0x0303;
constexpr uint32_t HANDSHAKE = 22, CLIENT_HELLO = 1, SERVER_HELLO = 2;

Bytes extension(uint32_t kind, const Bytes& content) {
    return ByteWriter().u16(kind).sized(2, content);
}

Bytes handshake_record(uint32_t version, uint32_t kind, const Bytes& message) {
    return ByteWriter().u8(HANDSHAKE).u16(version).sized(2, ByteWriter().u8(kind).sized(3, message));
}

}  // namespace

Bytes tls_client_hello(const std::string& server_name) {
    ByteWriter extensions;
    extensions.bytes(
        extension(0, ByteWriter().sized(2, ByteWriter().u8(0).sized(2, from_text(server_name)))));
    extensions.bytes(extension(10, ByteWriter().sized(2, ByteWriter().u16(29).u16(23))));  // groups
    extensions.bytes(extension(11, ByteWriter().sized(1, {0})));                           // points
    extensions.bytes(
        extension(13, ByteWriter().sized(2, ByteWriter().u16(0x0403).u16(0x0804))));  // signatures
    extensions.bytes(
        extension(16, ByteWriter().sized(2, ByteWriter().sized(1, from_text("http/1.1")))));  // ALPN
    ByteWriter hello;
    hello.u16(TLS_1_2).fill(32, 0x5A).sized(1, {});
    hello.sized(2, ByteWriter().u16(0xC02B).u16(0xC02F).u16(0xC030)).sized(1, {0}).sized(2, extensions);
    return handshake_record(TLS_1_0, CLIENT_HELLO, hello);
}

Bytes tls_server_hello() {
    ByteWriter hello;
    hello.u16(TLS_1_2).fill(32, 0xA5).sized(1, Bytes(32, 7)).u16(0xC02F).u8(0);
    hello.sized(2, extension(11, ByteWriter().sized(1, {0})));
    return handshake_record(TLS_1_2, SERVER_HELLO, hello);
}

Bytes quic_initial() {
    return from_hex(QUIC_INITIAL);
}

}  // namespace test
