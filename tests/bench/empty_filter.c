// SPDX-License-Identifier: Apache-2.0
/* The limit for a start: what loading libcups costs and nothing else does. */
int main(void) {
  return 0;
}
