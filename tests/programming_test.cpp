#include "harness.h"

namespace {

// secapp programs a board of vqxsim, both as users run them.
class Programming : public Secapp {
protected:
    Result vqxsim(const std::string& script, const std::string& options = "",
                  const std::string& simOptions = "") {
        write("script", script);
        std::filesystem::create_directory(folder / "memory");
        return run("exec vqxsim --memory memory " + simOptions + " -- secapp -d {} " + options +
                   " -s script");
    }

    [[nodiscard]] std::string memory(const std::string& region) const {
        return read("memory/" + region + ".bin");
    }
};

const std::size_t flashSize = 0x80000;

TEST_F(Programming, ArrivesByteForByte) {
    for (const auto& [options, sizes] : std::vector<std::pair<std::string, std::vector<std::size_t>>>{
             {"", {0, 1, 3, 31, 512, 513, 32768, 65537, flashSize}},
             {"-m 1000", {513, 65537}},
             {"-a 0", {0, 31, 513, 65537}},
             {"-a 0 -w 64", {3, 513, 65537}},
             {"-a 0 -w 1", {1, 513}}}) {
        for (const std::size_t size : sizes) {
            SCOPED_TRACE(options + " " + std::to_string(size));
            const std::string bytes = image(size);
            write("image", bytes);
            const Result r = vqxsim("erase FLASH\nprogram image FLASH\nverify image FLASH", options);
            EXPECT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(memory("FLASH") == bytes + std::string(flashSize - size, '\xff'));
            const std::string rest = std::to_string(size) + " bytes to 0x10000000 in ";
            EXPECT_NE(r.out.find("\nProgrammed " + rest), std::string::npos) << r.out;
            EXPECT_NE(r.out.find("\nVerified " + rest), std::string::npos) << r.out;
        }
    }
}

TEST_F(Programming, RunsAScriptAsAUserWritesIt) {
    write("image", image(40001));
    const Result r = vqxsim("# a new board\n"
                            "var at=FLASH+0x1000; var img=image\n"
                            "erase all; blankCheck all\r\n"
                            "-program +c [img] BANKB; program [img] [at],MORVI\n"
                            "verify +i [img] BANKB; verify [img] [at],MORVI\n"
                            "program +w2 0xBEEF FLASH+512*4096/8-512 6 ; download +c [img]\n"
                            "setBoot bankb; setVidPid 0x1234 0x42; targetInfo; readWord BANKB+28",
                            "-e e");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Processed 7 lines\n"), std::string::npos);
    const std::string bytes = image(40001);
    EXPECT_TRUE(memory("FLASH").substr(0x1000, 40001) == bytes);
    EXPECT_TRUE(memory("MORVI").substr(0, 40001) == bytes);
    EXPECT_EQ(memory("FLASH").substr(0x3fe00, 8), "\xEF\xBE\xEF\xBE\xEF\xBE\xff\xff");
    std::string patched = memory("BANKB").substr(0, 40001);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < 32; i++)
        sum += static_cast<std::uint32_t>(static_cast<unsigned char>(patched[i])) << i % 4 * 8;
    EXPECT_EQ(sum, 0U);
    EXPECT_TRUE(patched.replace(28, 4, bytes, 28, 4) == bytes);

    ASSERT_EQ(vqxsim("erase all;program +w1 0x12 all;verify +w1 0x12 all").status, 0);
    for (const char* region : {"FLASH", "BANKB", "MORVI"})
        EXPECT_EQ(memory(region).find_first_not_of('\x12'), std::string::npos) << region;
}

TEST_F(Programming, FailsWhenTheMemoryDiffers) {
    std::string bytes = image(70000);
    bytes[40000] = 0;
    write("image", bytes);
    ASSERT_EQ(vqxsim("erase FLASH;program image FLASH").status, 0);
    bytes[40000] = 1;
    write("image", bytes);
    Result r = vqxsim("verify image FLASH\necho not reached");
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.err.find("Error: script:1: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("10009c40"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("Verified"), std::string::npos);
    EXPECT_EQ(vqxsim("blankCheck FLASH").status, 255);
    EXPECT_EQ(vqxsim("program image FLASH").status, 255) << "flash only clears bits";
    EXPECT_EQ(vqxsim("setVidPid 1 2;setVidPid 1 3").status, 255);
}

} // namespace
