/* A C11 host of the library through its C interface: prices, periods, the sandbox store's
 * products and paywall, and one purchase followed to its end.
 *
 *     cc -std=c11 -pedantic main.c $(pkg-config --cflags --libs velquist-storekit)
 *     ./a.out <file.storekit> <paywall.json>
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "velquist/velquist.h"

static int failed(const char *what) {
  fprintf(stderr, "%s failed: %s\n", what, velquist_last_error());
  return 1;
}

static void print_batch(const char *batch_json, void *context) {
  int *batches = context;
  ++*batches;
  printf("batch: %s\n", batch_json);
}

int main(int argc, char **argv) {
  char *text = NULL;
  if (argc != 3) {
    fprintf(stderr, "usage: %s <file.storekit> <paywall.json>\n", argv[0]);
    return 2;
  }

  if (velquist_display_price("1234.567", "en_US", "down", &text) != VELQUIST_OK) return failed("display price");
  printf("display price: %s\n", text);
  velquist_string_free(text);

  if (velquist_convert_price("4.99", "P1W", "P1Y", &text) != VELQUIST_OK) return failed("convert price");
  printf("per year: %s\n", text);
  velquist_string_free(text);

  char *fraction = NULL;
  if (velquist_discount("39.99", "P1Y", "4.99", "P1W", "en_US", &fraction, &text) != VELQUIST_OK) {
    return failed("discount");
  }
  printf("discount: %s (%s)\n", fraction, text);
  velquist_string_free(fraction);
  velquist_string_free(text);

  velquist_period_format_options options = {.unit_style = "shortened", .units_expanded = "year"};
  if (velquist_period_text("P1Y", "en_US", &options, &text) != VELQUIST_OK) return failed("period text");
  printf("period: %s\n", text);
  velquist_string_free(text);

  /* Bad input is refused with a message, never a crash. */
  if (velquist_display_price("12,5", "en_US", NULL, &text) == VELQUIST_OK) return 1;
  printf("refused: %s\n", velquist_last_error());

  velquist_sandbox *sandbox = NULL;
  if (velquist_sandbox_open(argv[1], NULL, &sandbox) != VELQUIST_OK) return failed("sandbox open");

  const char *ids[] = {"com.velquist.demo.pro.weekly", "com.velquist.demo.nope"};
  if (velquist_products_json(sandbox, ids, 2, &text) != VELQUIST_OK) return failed("products");
  printf("products: %s\n", text);
  velquist_string_free(text);

  if (velquist_paywall_json(sandbox, argv[2], &text) != VELQUIST_OK) return failed("paywall");
  printf("paywall: %s\n", text);
  velquist_string_free(text);

  int batches = 0;
  velquist_observation *observation = NULL;
  if (velquist_follow_transactions(sandbox, "listener", print_batch, &batches, &observation) != VELQUIST_OK) {
    return failed("follow transactions");
  }
  if (velquist_buy(sandbox, "com.velquist.demo.pro.weekly", NULL) != VELQUIST_OK) return failed("buy");
  if (velquist_sandbox_wait_until_idle(sandbox) != VELQUIST_OK) return failed("wait");
  if (velquist_observation_wait(observation, 1, 10000) != VELQUIST_OK) return failed("observation wait");
  if (velquist_finish(sandbox, NULL) != VELQUIST_OK) return failed("finish");
  velquist_observation_end(observation);
  velquist_sandbox_close(sandbox);
  printf("batches delivered: %d\n", batches);
  return batches >= 1 ? 0 : 1;
}
