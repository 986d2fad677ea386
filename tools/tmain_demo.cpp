#include <tmain/tmain.h>
int main() { return 0; }
