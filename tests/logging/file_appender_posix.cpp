#include <cstdlib>
#include <ctime>

void setEnv(const char* name, const char* value) {
    value ? setenv(name, value, 1) : unsetenv(name);
    tzset();
}
