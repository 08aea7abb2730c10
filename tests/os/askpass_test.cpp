// Programs that ask for credentials: their answers, their ways to fail, and the loop that turns meanwhile.
#include "os/linux/askpass.h"

#include "tessel/tessel.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

using kro::tessel::credentials_request;
using kro::tessel::os::ask_with_program;
using kro::tessel::os::askpass_program;

constexpr std::uint32_t k_long_ms = 60000;

class Askpass : public testing::Test {
public:
    Askpass() {
        char name[] = "/tmp/tessel-askpass-XXXXXX";
        const int file = ::mkstemp(name);
        ::close(file);
        program = name;
    }
    ~Askpass() override { ::unlink(program.c_str()); }

    // The program is this script; $1 is the question.
    void write(const std::string& script) const {
        std::ofstream(program, std::ios::trunc) << "#!/bin/sh\n" << script;
        ::chmod(program.c_str(), 0700);
    }

    std::string program;
};

credentials_request question() {
    credentials_request request;
    request.for_proxy = true;
    request.host = TESSEL_W("proxy:3128");
    request.realm = TESSEL_W("the \"inner\"\nnet; rm -rf $HOME");
    request.user = TESSEL_W("mia");
    return request;
}

TEST_F(Askpass, TakesTheAnswersAndKeepsAKnownName) {
    write(R"(case "$1" in
        'User name for proxy proxy:3128 (the "inner" net; rm -rf $HOME) [mia]: ') ;;
        'Password of mia for proxy proxy:3128 (the "inner" net; rm -rf $HOME): ') printf 'gr\303\274n \nrest\n';;
        *) exit 1;;
        esac)");
    credentials_request request = question();
    ASSERT_TRUE(ask_with_program(program, k_long_ms, request));
    EXPECT_TRUE(request.user == TESSEL_W("mia"));
    EXPECT_TRUE(request.password == TESSEL_W("gr\u00fcn "));
}

TEST_F(Askpass, TakesNoAnswerForCancelled) {
    const struct {
        const char* what;
        const char* script;
        std::uint32_t limit_ms;
    } rows[] = {
        {"a status other than 0", "echo name; exit 1", k_long_ms},
        {"an empty password", "case $1 in U*) echo name;; *) echo;; esac", k_long_ms},
        {"a flood", "yes", k_long_ms},
        {"no end behind an answer", "echo name; exec sleep 1000 > /dev/null", 50},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        write(row.script);
        credentials_request request = question();
        EXPECT_FALSE(ask_with_program(program, row.limit_ms, request));
        EXPECT_TRUE(request.password.empty());
    }
    credentials_request request = question();
    EXPECT_FALSE(ask_with_program("/nowhere/at/all", k_long_ms, request));
}

// The answer comes from the loop that turns while the question is open.
TEST_F(Askpass, TheLoopTurnsMeanwhile) {
    const std::string fifo = program + ".fifo";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    write("case $1 in U*) cat " + fifo + ";; *) echo secret;; esac");
    struct answering_timer {
        void tick(unsigned id) {
            kro::tessel::timer::_killtimer(id);
            std::ofstream(fifo) << "answer\n";
        }
        const std::string& fifo;
    } answering{fifo};
    kro::tessel::timer::_addtimer(1, 10, {&answering, &answering_timer::tick});
    credentials_request request = question();
    EXPECT_TRUE(ask_with_program(program, k_long_ms, request));
    EXPECT_TRUE(request.user == TESSEL_W("answer"));
    EXPECT_TRUE(request.password == TESSEL_W("secret"));
    ::unlink(fifo.c_str());
}

TEST(AskpassProgram, IsTheFirstOneNamed) {
    ::unsetenv("TESSEL_ASKPASS");
    ::unsetenv("SSH_ASKPASS");
    EXPECT_EQ("", askpass_program());
    ::setenv("SSH_ASKPASS", "/usr/bin/ssh-askpass", 1);
    EXPECT_EQ("/usr/bin/ssh-askpass", askpass_program());
    ::setenv("TESSEL_ASKPASS", "", 1);
    EXPECT_EQ("/usr/bin/ssh-askpass", askpass_program());
    ::setenv("TESSEL_ASKPASS", "asker", 1);
    EXPECT_EQ("asker", askpass_program());
}

}  // namespace
