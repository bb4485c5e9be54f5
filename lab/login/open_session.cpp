// Logs a user in, as a display manager or a remote login does, and keeps the session open until
// standard input ends.
//
//   open-session USER TYPE SEAT REMOTE_HOST
//
// TYPE is logind's type of the session ("x11", "tty"); SEAT and REMOTE_HOST may be empty. When the
// session is open, prints the environment that PAM gives it, one entry per line, and an empty line.
// This process is the session's leader and the first process of its scope.
#include <security/pam_appl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

// The modules of this login ask for nothing.
int RefuseToTalk(int, const pam_message**, pam_response**, void*) { return PAM_CONV_ERR; }

int Fail(pam_handle_t* pam, const char* step, int result) {
  fprintf(stderr, "open-session: %s: %s\n", step, pam_strerror(pam, result));
  return 1;
}

void PrintEnvironment(pam_handle_t* pam) {
  for (char** entry = pam_getenvlist(pam); entry != nullptr && *entry != nullptr; ++entry) {
    puts(*entry);
  }
  puts("");
  fflush(stdout);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) return 2;
  const std::string type = arguments[2];
  const std::string seat = arguments[3];
  const std::string remoteHost = arguments[4];

  const pam_conv conversation = {RefuseToTalk, nullptr};
  pam_handle_t* pam = nullptr;
  int result = pam_start("lab-session", arguments[1], &conversation, &pam);
  if (result != PAM_SUCCESS) return Fail(pam, "pam_start", result);
  if (!remoteHost.empty()) pam_set_item(pam, PAM_RHOST, remoteHost.c_str());
  if (!seat.empty()) pam_putenv(pam, ("XDG_SEAT=" + seat).c_str());
  pam_putenv(pam, ("XDG_SESSION_TYPE=" + type).c_str());
  pam_putenv(pam, "XDG_SESSION_CLASS=user");

  result = pam_open_session(pam, 0);
  if (result != PAM_SUCCESS) return Fail(pam, "pam_open_session", result);
  PrintEnvironment(pam);
  for (char byte = 0; read(STDIN_FILENO, &byte, 1) > 0;) {
  }
  pam_close_session(pam, 0);
  pam_end(pam, PAM_SUCCESS);
  return 0;
}
