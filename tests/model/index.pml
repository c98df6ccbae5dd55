/* The index while it grows: a bucket is split, its chain compacted, and the writer dies in it; a lookup and a walk.
 *
 * A bucket has two entries here. Bucket A is all of the index at first: keys J and M, and K in overflow bucket X. Key N
 * comes, and A is split: M moves to bucket B, which is new; then K moves forward into M's place, and X with N's and
 * K's old places is let go where nothing is left in it. J, K and M stay all the time. Their order in a walk: J, K, N, M.
 * Records are left out: an entry is its key. A bucket's meta word is its sequence and, in bit 7, its link to X.
 *
 * Switches that take something away, each of which has to be noticed:
 *   WEAK_STORES, WEAK_LOADS    no release, no acquire
 *   CLEARS_FIRST               a split clears the old places before it stores the state word
 *   NO_STATE_LOOK              readers do not look at the state word again
 *   REPAIR_KEEPS_STATE         the repair takes double entries out under the same state word
 *   REPAIR_KEEPS_DOUBLES       the repair leaves double entries where they are */

#define J 1
#define K 2
#define N 3
#define M 4

#define STATE 0
#define META(b) (1 + 3 * (b))
#define CELL(b, i) (2 + 3 * (b) + (i))
#define A 0
#define B 1
#define X 2
#define LOCATIONS 10
#define LOG (LOCATIONS + 46)
#include "memory.pml"

#define LINK 128
/* State word: 0 one bucket, odd two buckets, more with each compaction or repair. */
#define SPLIT(state) ((state) & 1)
#define HOME(key, state) ((SPLIT(state) && (key) == M) -> B : A)

#define LOOKS 1

bit writing = 1;
byte turn = 0;   /* whose of the readers */
byte told = 0;   /* what the last of them knew */

inline begin(b) { STORE(META(b), now[META(b)] | 1, RELAXED) }
inline end(b, linked) { STORE(META(b), ((((now[META(b)] | 1) + 1) & 127) | linked), RELEASE) }
inline put(b, i, key) {
  begin(b);
  STORE(CELL(b, i), key, RELEASE);
  end(b, now[META(b)] & LINK)
}

/* Compaction: what stands behind moves forward, then the state word, then the originals go. Here there is room in A
 * for K only when N went elsewhere: N is erased by then or K stays. */
inline compact() {
  put(A, 1, K);
  STORE(STATE, now[STATE] + 2, RELEASE);
  begin(A);
  end(A, 0);
  begin(X);
  STORE(CELL(X, 0), 0, RELEASE);
  STORE(CELL(X, 1), 0, RELEASE);
  end(X, 0)
}

/* One bucket of the chain of A, as the repair leaves it: entries of another bucket, or met before, go. */
inline repairCell(b, i) {
  if
  :: now[CELL(b, i)] == 0 -> keep = 0
  :: now[CELL(b, i)] != 0 && (HOME(now[CELL(b, i)], now[STATE]) != A || (met >> now[CELL(b, i)]) & 1) -> keep = 0
  :: else -> keep = now[CELL(b, i)]; met = met | (1 << keep)
  fi;
#ifdef REPAIR_KEEPS_DOUBLES
  keep = now[CELL(b, i)];
#endif
  if
  :: keep != now[CELL(b, i)] || (i == 0 && (now[META(b)] & 1)) ->
#ifndef REPAIR_KEEPS_STATE
     if
     :: !moved -> moved = 1; STORE(STATE, now[STATE] + 2, RELEASE)
     :: else
     fi;
#endif
     begin(b);
     STORE(CELL(b, i), keep, RELEASE);
     end(b, now[META(b)] & LINK)
  :: else
  fi
}

proctype Writer() {
  byte keep = 0;
  byte met = 0;
  bit moved = 0;
  put(X, 1, N);
  /* split */
  begin(B);
  STORE(CELL(B, 0), 0, RELEASE);
  end(B, 0);
  put(B, 0, M);
#ifdef CLEARS_FIRST
  put(A, 1, 0);
  STORE(STATE, now[STATE] + 1, RELEASE);
#else
  STORE(STATE, now[STATE] + 1, RELEASE);
  put(A, 1, 0);
#endif
  put(X, 1, 0);   /* N is erased again: there is room for the chain in A */
  compact();
  goto done;
dies:
  /* All that is left over is put right before anything else is written. */
  repairCell(A, 0);
  repairCell(A, 1);
  if
  :: now[META(A)] & LINK ->
     repairCell(X, 0);
     repairCell(X, 1)
  :: else
  fi;
  /* Each that stays stands once: in its bucket's chain, and in no other. */
  atomic {
    met = 0;
    if :: now[CELL(A, 0)] == K || now[CELL(A, 1)] == K -> met++ :: else fi;
    if :: (now[META(A)] & LINK) && (now[CELL(X, 0)] == K || now[CELL(X, 1)] == K) -> met++ :: else fi;
    assert(met == 1);
    assert(now[CELL(A, 0)] == J);
    assert((now[CELL(A, 1)] == M) == !SPLIT(now[STATE]));
    assert(!SPLIT(now[STATE]) || now[CELL(B, 0)] == M);
    met = 0; keep = 0; moved = 0
  }
done:
  writing = 0
}

/* A bucket's words, as `look` reads them: seen standing still, or passed over after so many looks. */
inline look(b) {
  do
  :: load(META(b), ACQUIRE, meta);
     load(CELL(b, 0), ACQUIRE, first);
     load(CELL(b, 1), ACQUIRE, second);
     load(META(b), RELAXED, again);
     if
     :: meta == again && (meta & 1) == 0 -> break
     :: (meta != again || (meta & 1)) && looks > 0 -> looks--
     :: (meta != again || (meta & 1)) && looks == 0 -> break
     fi
  od;
  again = 0;
  looks = LOOKS
}
inline begins() {
#ifndef INTERLEAVED
  !writing && turn == me;   /* as in slots.pml */
#endif
  atomic {
    if
    :: told > known -> known = told
    :: skip
    fi
  }
}
inline ends() { told = known; turn++ }
#ifdef NO_STATE_LOOK
#define STANDS again = state
#else
#define STANDS load(STATE, RELAXED, again)
#endif

/* Looks for a key that stays. */
proctype Finder(byte me) {
  VIEW;
  byte key, state, bucket, meta, first, second, again;
  byte looks = LOOKS;
  begins();
  if :: key = J :: key = K :: key = M fi;
  do
  :: grown = 0;
     load(STATE, ACQUIRE, state);
     bucket = HOME(key, state);
     look(bucket);
     if
     :: first == key || second == key -> break
     :: else
     fi;
     if
     :: meta & LINK ->
        look(X);
        if
        :: first == key || second == key -> break
        :: else
        fi
     :: else
     fi;
     STANDS;
     assert(again != state);   /* else it is a miss of what is there */
     assert(grown);
     again = 0
  od;
  ends()
}

#define BELONGS(entry) (HOME(entry, state) == bucket)

/* The smallest key of the bucket at or behind a place. */
inline takes(entry) {
  if
  :: BELONGS(entry) && entry >= place && (best == 0 || entry < best) -> best = entry
  :: else
  fi
}

/* Meets J, K and M once each, whatever else comes and goes. */
proctype Walker(byte me) {
  VIEW;
  byte place = J;
  byte best, state, bucket, meta, first, second, again;
  byte looks = LOOKS;
  byte met[5];
  begins();
  do
  :: grown = 0;
     best = 0;
     load(STATE, ACQUIRE, state);
     bucket = HOME(place, state);
     look(bucket);
     takes(first);
     takes(second);
     if
     :: meta & LINK ->
        look(X);
        takes(first);
        takes(second)
     :: else
     fi;
     STANDS;
     if
     :: again != state -> assert(grown)
     :: again == state && best != 0 -> met[best]++; place = best + 1; if :: best == M -> break :: else fi
     :: again == state && best == 0 && SPLIT(state) && bucket == A -> place = M   /* on to the next bucket */
     :: again == state && best == 0 && !(SPLIT(state) && bucket == A) -> break
     fi;
     meta = 0; first = 0; second = 0; again = 0
  od;
  assert(met[J] == 1 && met[K] == 1 && met[M] == 1 && met[N] <= 1);
  ends()
}

init {
  atomic {
    byte i = 0;
    do
    :: i < LOCATIONS -> STORED(i, 0); i++
    :: else -> break
    od;
    now[CELL(A, 0)] = J; now[CELL(A, 1)] = M; now[META(A)] = LINK; now[CELL(X, 0)] = K;
    logValue[CELL(A, 0)] = J; logValue[CELL(A, 1)] = M; logValue[META(A)] = LINK; logValue[CELL(X, 0)] = K;
    run Writer();
#ifndef WALKS_ONLY
    run Finder(0);
#endif
#ifndef FINDS_ONLY
#ifdef WALKS_ONLY
    run Walker(0)
#else
    run Walker(1)
#endif
#endif
  }
}
