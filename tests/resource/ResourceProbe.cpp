// A program that is built with the data resource; its exit code tells whether it finds it.
#include "KivSysResource.h"

int main() {
  return kiv::sys::HasKivDataResource() ? 42 : 1;
}
