/*
 * The C interface of VelquistStoreKit: the one door for hosts written in C and for every
 * language that can call C (Python's ctypes, C#, Dart, game-engine scripts).
 *
 * C11. No C++ type and no exception crosses it.
 *
 * Status: every function that can fail returns an int, 0 (VELQUIST_OK) on success and one
 * of the VELQUIST_ERROR_* codes otherwise. Bad input (a null pointer, a malformed amount or
 * period, an unknown locale or rounding rule, an unreadable or malformed file) is refused
 * with a non-zero status, never a crash.
 *
 * Errors: after a failure, velquist_last_error() gives the failure's message on the
 * calling thread, e.g.
 *     velquist_display_price: '12,5' is not a decimal amount such as 1234.567
 * The text is owned by the library and stays valid on that thread until its next call
 * into the library. A successful call leaves "" there.
 *
 * Ownership: every char* the library hands out (out_text, out_json, ...) is UTF-8, ends
 * with a NUL, belongs to the caller and is released with velquist_string_free(). On
 * failure nothing is handed out and the out parameter is set to NULL. Strings passed in
 * are only read during the call.
 *
 * Threads: every function may be called from any thread at any time. Those whose words
 * follow a locale (a period text in a named locale, the sandbox's products and paywall in
 * the file's locale) make it the process's current locale for the length of the call;
 * these calls are serialized against each other. One sandbox may be open at a time: it is the process's store while it is open.
 * Its functions may be called from any thread. Transaction callbacks run on a thread of
 * the library's, one batch at a time, never while a velquist_* call of the host is
 * waiting on them; a callback must not end its own observation.
 */
#ifndef VELQUIST_VELQUIST_H
#define VELQUIST_VELQUIST_H

#include <stddef.h>

#include "velquist/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes. */
#define VELQUIST_OK 0
#define VELQUIST_ERROR_INVALID_ARGUMENT 1 /* null pointer, malformed or unknown value */
#define VELQUIST_ERROR_FILE 2             /* a file that cannot be read or used */
#define VELQUIST_ERROR_STATE 3            /* not possible now (a sandbox already open, ...) */
#define VELQUIST_ERROR_STORE 4            /* the store reported a failure */
#define VELQUIST_ERROR_INTERNAL 5         /* out of memory or an unexpected failure */

/* The message of the calling thread's last failure; "" when its last call succeeded.
 * Never NULL. Owned by the library. Thread-safe. */
VELQUIST_EXPORT const char *velquist_last_error(void);

/* Releases a string the library handed out. NULL is ignored. Thread-safe. */
VELQUIST_EXPORT void velquist_string_free(char *text);

/* --- Prices ---------------------------------------------------------------------- */

/* A price as currency text in a locale, rounded to the currency's digits by a rounding
 * rule: "toNearestOrAwayFromZero", "toNearestOrEven", "up", "down" (also when NULL),
 * "towardZero" or "awayFromZero".
 *     velquist_display_price("1234.567", "en_US", "down", &text)  ->  "$1234.56"
 *     velquist_display_price("9.99", "de_DE", NULL, &text)        ->  "9,99 €" (U+00A0 before €)
 * The amount is decimal text ("1234.567", "-3", "1e2"). Thread-safe. */
VELQUIST_EXPORT int velquist_display_price(const char *amount, const char *locale_id, const char *rounding_rule,
                                           char **out_text);

/* A price charged per one period restated for another (ISO 8601 periods of one
 * component: "P1D", "P1W", "P3M", "P1Y"), as exact decimal text.
 *     velquist_convert_price("4.99", "P1W", "P1Y", &text)  ->  "260.3712140000000510976"
 * Thread-safe. */
VELQUIST_EXPORT int velquist_convert_price(const char *amount, const char *from_period, const char *to_period,
                                           char **out_amount);

/* The saving of one plan against another: each plan is an amount and the period it is
 * charged for, or "once" for a one-off purchase. Plans compare their prices per year; a
 * one-off purchase on either side compares the plain prices. Gives the fraction as decimal
 * text and the percentage written in the locale (NULL: the current locale).
 *     velquist_discount("39.99", "P1Y", "4.99", "P1W", "en_US", &fraction, &percent)
 *         ->  fraction "0.85", percent "85%"
 * Either out parameter may be NULL when not wanted. Thread-safe. */
VELQUIST_EXPORT int velquist_discount(const char *amount, const char *period, const char *other_amount,
                                      const char *other_period, const char *locale_id, char **out_fraction,
                                      char **out_percent_text);

/* --- Periods --------------------------------------------------------------------- */

/* How a period is written; a NULL options pointer, or NULL fields, give the defaults. */
typedef struct velquist_period_format_options {
  const char *unit_style;      /* "complete" (default), "shortened" or "recurrent" */
  const char *units_collapsed; /* comma-separated units read as the next larger one:
                                  "day" (7 days as a week), "month" (12 months as a year) */
  const char *units_expanded;  /* comma-separated units restated in the smaller one:
                                  "week" (as 7 days), "year" (as 12 months) */
  int always_show_value;       /* non-zero: "1 week"; zero: "week" */
} velquist_period_format_options;

/* A period's text in the locale's language (NULL: the current locale's).
 *     velquist_period_text("P3M", "en_US", NULL, &text)                        ->  "3 months"
 *     velquist_period_text("P1Y", "en_US", &(velquist_period_format_options){
 *         .unit_style = "shortened", .units_expanded = "year"}, &text)         ->  "12 mo"
 * Thread-safe (serialized with the other calls that set the locale). */
VELQUIST_EXPORT int velquist_period_text(const char *period, const char *locale_id,
                                         const velquist_period_format_options *options, char **out_text);

/* --- The sandbox store ------------------------------------------------------------ */

/* The local store over a StoreKit configuration file (.storekit), with its ledger kept in
 * state_dir (created when missing; NULL: a folder of its own, removed on close). Only one
 * sandbox may be open at a time; it is the store of every request until it is closed.
 * The functions taking a sandbox may be called from any thread. */
typedef struct velquist_sandbox velquist_sandbox;

VELQUIST_EXPORT int velquist_sandbox_open(const char *storekit_path, const char *state_dir,
                                          velquist_sandbox **out);

/* Stops the sandbox's observations (each is still released with velquist_observation_end),
 * lets the store finish its work and closes it. NULL is ignored. The handle is invalid
 * afterwards; no other call on the same sandbox may run at the same time as this one. */
VELQUIST_EXPORT void velquist_sandbox_close(velquist_sandbox *sandbox);

/* The products the store sells among product_ids (count identifiers; NULL with a count of
 * 0 asks for every product of the file), as a JSON array in the order asked, one object
 * per product in its serial form (the price as decimal text, the display price in the
 * storefront's currency); unknown identifiers are left out.
 *     [{"id":"com.example.weekly","displayName":"Weekly","description":"...",
 *       "price":"4.99","priceLocale":"en_US","displayPrice":"$4.99","subscription":{...}}] */
VELQUIST_EXPORT int velquist_products_json(velquist_sandbox *sandbox, const char *const *product_ids, size_t count,
                                           char **out_json);

/* A paywall document's products fetched from the sandbox, as one JSON document with each
 * product's roles, price per its own period and per week, free trial and discount against
 * the comparing product, in the language of the file's locale.
 *     {"id":"onboarding","variantID":null,"filterPayUpFrontProduct":false,
 *      "roles":{"selected":"com.example.yearly"},
 *      "products":[{"id":"com.example.yearly","roles":["selected"],"price":"$39.99 / year",...}],
 *      "missingProducts":[]} */
VELQUIST_EXPORT int velquist_paywall_json(velquist_sandbox *sandbox, const char *paywall_path, char **out_json);

/* --- Transactions ------------------------------------------------------------------ */

/* Receives each non-empty batch of transactions a mechanism delivers, as a JSON array;
 * batch_json is only valid during the call. The store waits (up to five seconds) until
 * every mechanism has handled a batch before it reports the next, so each transaction is
 * seen in the state it was reported in.
 *     [{"id":"1","productID":"com.example.weekly","state":"purchased",
 *       "originalID":null,"isStartTrial":true}] */
typedef void (*velquist_transactions_callback)(const char *batch_json, void *context);

/* One following of the sandbox's transactions. */
typedef struct velquist_observation velquist_observation;

/* Follows the transactions with the listener-based transaction queue ("listener") or the
 * stream-based payment queue ("stream"). Each batch holds what that mechanism hands a C++
 * listener or stream (the listener also hands on purchases still in progress), each
 * record telling whether it starts a free trial. */
VELQUIST_EXPORT int velquist_follow_transactions(velquist_sandbox *sandbox, const char *mechanism,
                                                 velquist_transactions_callback callback, void *context,
                                                 velquist_observation **out);

/* Waits until the observation has delivered at least `batches` batches in all, or until
 * timeout_ms milliseconds have passed (VELQUIST_ERROR_STATE then). */
VELQUIST_EXPORT int velquist_observation_wait(velquist_observation *observation, size_t batches, int timeout_ms);

/* Stops the following (no callback runs after it returns) and releases it. NULL is
 * ignored. Must not be called from the observation's own callback, nor at the same time as
 * velquist_sandbox_close from another thread. */
VELQUIST_EXPORT void velquist_observation_end(velquist_observation *observation);

/* Buys a product, with a promotional offer when offer_id is not NULL. The outcome comes
 * through the observations. */
VELQUIST_EXPORT int velquist_buy(velquist_sandbox *sandbox, const char *product_id, const char *offer_id);

/* Finishes the transaction with that identifier, or every transaction the store has
 * reported since the sandbox was opened when transaction_id is NULL. */
VELQUIST_EXPORT int velquist_finish(velquist_sandbox *sandbox, const char *transaction_id);

/* Restores the completed transactions; they come through the observations. */
VELQUIST_EXPORT int velquist_restore(velquist_sandbox *sandbox);

/* Waits until the store has nothing left to do (every report made). */
VELQUIST_EXPORT int velquist_sandbox_wait_until_idle(velquist_sandbox *sandbox);

#ifdef __cplusplus
}
#endif

#endif /* VELQUIST_VELQUIST_H */
