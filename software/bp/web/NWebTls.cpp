#include "NWebTls.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "CException.h"
#include "module/NModule.h"

const ITlsModule& NWebTls::Module() {
    // Initialised once even with threads racing to it; a load that throws is tried again
    // at the next call.
    static const ITlsModule* const module = reinterpret_cast<TWebTlsModuleEntry>(NModule::LoadEntry(
        reinterpret_cast<const void*>(&NWebTls::Module), kWebTlsModule, kWebTlsModuleEntry, "the TLS module"))();
    return *module;
}

NTlsCertificate::SResult NWebTls::LoadOrMakeApart(const std::string& folder, const std::string& name) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        THROW_EXCEPTION("TLS: the certificate check cannot make a pipe: %s", strerror(errno));
    }
    const pid_t child = fork();
    if (child < 0) {
        const int error = errno;
        close(pipeFds[0]);
        close(pipeFds[1]);
        THROW_EXCEPTION("TLS: the certificate check cannot start a process: %s", strerror(error));
    }
    if (child == 0) {
        close(pipeFds[0]);
        // The answer: "+" made (0 or 1) and the fingerprint, or "-" and the error message.
        std::string answer;
        try {
            const NTlsCertificate::SResult result = Module().LoadOrMake(folder, name);
            answer = std::string("+") + (result.made ? '1' : '0') + result.fingerprint;
        } catch (const CException& e) {
            answer = "-" + e.GetMessage();
        }
        size_t written = 0;
        while (written < answer.size()) {
            const ssize_t n = write(pipeFds[1], answer.data() + written, answer.size() - written);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                break;
            }
            written += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(pipeFds[1]);
    std::string answer;
    char buffer[512];
    for (;;) {
        const ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        answer.append(buffer, static_cast<size_t>(n));
    }
    close(pipeFds[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (answer.size() >= 2 && answer[0] == '+') {
        NTlsCertificate::SResult result;
        result.certificatePath = folder + "/cert.pem";
        result.keyPath = folder + "/key.pem";
        result.made = answer[1] == '1';
        result.fingerprint = answer.substr(2);
        return result;
    }
    if (!answer.empty() && answer[0] == '-') {
        THROW_EXCEPTION("%s", answer.c_str() + 1);
    }
    THROW_EXCEPTION("TLS: the certificate check ended without an answer (status %d)", status);
}
