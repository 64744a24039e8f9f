/* The thermostat of thermostat.cpp in C. Usage: "thermostat_c [NAME]". */
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <treescope.h>
#include <unistd.h>

static int open_signals(void) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return sigprocmask(SIG_BLOCK, &signals, NULL) == 0 ? signalfd(-1, &signals, SFD_CLOEXEC) : -1;
}

static int open_timer(void) {
  const struct itimerspec second = {{1, 0}, {0, 1}};
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  return timerfd_settime(timer, 0, &second, NULL) == 0 ? timer : -1;
}

static treescope_result step(treescope_part *const *part) {
  double inside = 0, outside = 0, target = 0;
  char *mode = NULL;
  treescope_result result = treescope_part_get_double(part[0], 0, &inside);
  result = result ? result : treescope_part_get_double(part[0], 1, &outside);
  result = result ? result : treescope_part_get_double(part[1], TREESCOPE_ALL, &target);
  result = result ? result : treescope_part_get(part[2], TREESCOPE_ALL, &mode, NULL);
  const double goal = mode != NULL && mode[0] == 'h' ? target : outside;
  treescope_free(mode);
  return result ? result : treescope_part_set_double(part[0], 0, inside + (goal - inside) / 16);
}

int main(int argc, char *argv[]) {
  const char *const name = argc > 1 ? argv[1] : "Model_thermostat";
  const treescope_part_options parts[] = {
      {.id = 1, .name = "temperature", .type = TREESCOPE_DOUBLE, .access = TREESCOPE_READ,
       .value = "18.5\n4", .elements = 2, .element_names = (const char *[]){"inside", "outside"}},
      {.id = 2, .name = "setpoint", .type = TREESCOPE_DOUBLE, .value = "20.5", .unit = "degrees",
       .minimum = "5", .maximum = "30"},
      {.id = 3, .name = "mode", .type = TREESCOPE_TEXT, .value = "off",
       .choices = (const char *[]){"off", "heat"}, .choice_count = 2}};
  treescope_server *server = NULL;
  treescope_part *part[3] = {NULL};
  treescope_result result = treescope_server_new(&server);
  for (int i = 0; i < 3 && !result; ++i) result = treescope_add(server, NULL, &parts[i], &part[i]);
  if (result || treescope_publish(server, name) != TREESCOPE_SUCCESS)
    return fprintf(stderr, "thermostat: %s\n", treescope_message()) < 0 ? 2 : 1;
  struct pollfd waiting[] = {{treescope_server_descriptor(server), POLLIN, 0},
                             {open_timer(), POLLIN, 0}, {open_signals(), POLLIN, 0}};
  if (waiting[1].fd < 0 || waiting[2].fd < 0 || printf("ready %s\n", name) < 0 || fflush(stdout))
    return treescope_server_close(server) == TREESCOPE_SUCCESS ? 1 : 2;
  for (char ticks[8]; waiting[2].revents == 0 && poll(waiting, 3, -1) > 0;) {
    treescope_server_dispatch(server, 0);
    if (waiting[1].revents && read(waiting[1].fd, ticks, sizeof ticks) > 0 && step(part)) break;
  }
  return treescope_server_close(server) == TREESCOPE_SUCCESS ? 0 : 1;
}
