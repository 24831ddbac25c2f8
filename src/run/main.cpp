#include "run/keldothumb.h"

int main(int argc, char** argv) {
  return keldo::RunKeldothumb(argc, argv);
}
