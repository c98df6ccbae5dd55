/* A memory as C++ promises it to readers who write nothing.
 *
 * All stores of the writer, and of the one after it, stand in one log in the order they were made. A load takes any
 * store of its word in the log that is not older than one its reader knows to be overwritten: the reader has seen that
 * itself (seen), or has read with acquire a store made with release that came after (known).
 *
 * Whoever includes this defines LOCATIONS and LOG first. */

#define RELAXED 0
#define RELEASE 1
#define ACQUIRE 1

byte logWord[LOG];
byte logValue[LOG];
bit logRelease[LOG];
byte logEnd = LOCATIONS;   /* word w begins with the store at w */

#define STORED(w, v) logWord[w] = w; logValue[w] = v

#ifdef WEAK_STORES
#define ORDER_OF_STORE(o) RELAXED
#else
#define ORDER_OF_STORE(o) o
#endif
#ifdef WEAK_LOADS
#define ORDER_OF_LOAD(o) RELAXED
#else
#define ORDER_OF_LOAD(o) o
#endif

/* For the writer, which knows its own stores. */
byte now[LOCATIONS];

/* The writer may die before each store: once. */
bit mayDie = 1;
#define STORE(w, v, order) \
  if \
  :: mayDie -> mayDie = 0; goto dies \
  :: atomic { \
       assert(logEnd < LOG); \
       now[w] = v; logWord[logEnd] = w; logValue[logEnd] = now[w]; logRelease[logEnd] = ORDER_OF_STORE(order); logEnd++ \
     } \
  fi

/* Of each reader. */
#define VIEW byte seen[LOCATIONS]; byte known = LOCATIONS - 1; byte at; bit grown

inline learns(order) {
  if :: at > seen[logWord[at]] -> seen[logWord[at]] = at; grown = 1 :: else fi;
  if :: ORDER_OF_LOAD(order) && logRelease[at] && at > known -> known = at; grown = 1 :: else fi;
  at = 0
}
inline load(w, order, value) {
  atomic {
    at = logEnd - 1;
    do
    :: logWord[at] != w -> at--
    :: logWord[at] == w -> break
    :: logWord[at] == w && at > known && at > seen[w] -> at--
    od;
    value = logValue[at];
    learns(order)
  }
}
