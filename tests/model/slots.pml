/* One record that is overwritten in two slots: each is filled anew as soon as no entry names it.
 *
 * There is no check here (it may be blind): the sequence alone has to keep the words of two records apart. A record's
 * two words are its version. Entry, slot meta words and record words are the words of docs/shared-memory.md.
 *
 * Switches that take something away, each of which has to be noticed:
 *   WEAK_STORES, WEAK_LOADS   no release, no acquire
 *   WEAK_ODD                  the odd meta word is stored relaxed
 *   NO_SECOND_LOOK            the reader does not look at the meta word again
 *   NO_ODD                    the writer does not make the sequence odd before it fills
 *   ENTRY_FIRST               the entry is stored before its slot is filled
 *   TRUSTS_HALF_FILLED        the successor puts the sequence of a half filled slot right and names the slot
 *   FILLS_NAMED               the successor takes the slot that the entry names for free */

#define ENTRY 0
#define META(s) (1 + 3 * (s))
#define ONE(s) (2 + 3 * (s))
#define TWO(s) (3 + 3 * (s))
#define LOCATIONS 7
#ifndef VERSIONS
#define VERSIONS 3
#endif
#ifndef READERS
#define READERS 2
#endif
#define LOG (LOCATIONS + 5 * (VERSIONS + 2) + 4)
#include "memory.pml"

byte acknowledged = 0;              /* version */
byte acknowledgedAt = LOCATIONS - 1; /* in the log */
bit writing = 1;
byte turn = 0;   /* whose of the readers */
byte told = 0;   /* what the last of them knew */

#ifdef WEAK_ODD
#define ODD RELAXED
#else
#define ODD RELEASE
#endif

inline fill(slot, v) {
#ifndef NO_ODD
  STORE(META(slot), now[META(slot)] | 1, ODD);
#endif
  STORE(ONE(slot), v, RELEASE);
  STORE(TWO(slot), v, RELEASE);
  STORE(META(slot), (now[META(slot)] | 1) + 1, RELEASE)
}
inline overwrite(slot, v) {
#ifdef ENTRY_FIRST
  STORE(ENTRY, slot, RELEASE);
  fill(slot, v)
#else
  fill(slot, v);
  STORE(ENTRY, slot, RELEASE)
#endif
}

/* The writer; after its death the same process is its successor. It knows which slots are free by the entry. */
proctype Writer() {
  byte version = 1;
  byte free;
  free = 1 - now[ENTRY];
more:
  do
  :: version <= VERSIONS ->
     overwrite(free, version);
     atomic { acknowledged = version; acknowledgedAt = logEnd - 1 }
     version++;
     free = 1 - free
  :: else -> break
  od;
  writing = 0;
  goto end;
dies:
  atomic {
    assert(now[ENTRY] <= 1);
    assert((now[META(now[ENTRY])] & 1) == 0);                  /* what an entry names is filled */
    assert(now[ONE(now[ENTRY])] == now[TWO(now[ENTRY])]);
    assert(now[ONE(now[ENTRY])] >= acknowledged)               /* what was acknowledged stands, or what came after */
  }
  free = 1 - now[ENTRY];
#ifdef TRUSTS_HALF_FILLED
  if
  :: now[META(free)] & 1 ->
     STORE(META(free), now[META(free)] + 1, RELEASE);
     STORE(ENTRY, free, RELEASE);
     free = 1 - free
  :: else
  fi;
#endif
#ifdef FILLS_NAMED
  free = now[ENTRY];
#endif
  version = now[ONE(now[ENTRY])] + 1;
  goto more;
end:
  skip
}

/* A lookup. The fast side believes a meta word that was even and the same before and after. The slow side asks for the
 * entry, too: while it stands and the slot was not filled since, what was read is the record or damage; otherwise it
 * looks again. */
proctype Reader(byte me) {
  VIEW;
  byte slot, meta, one, two, again, entry, least;
  bit slowly;
#ifndef INTERLEAVED
  /* A load may take an old store: what is seen beside the writer or another reader is among what is seen after it. */
  !writing && turn == me;
#endif
  atomic {
    if   /* told by the writer of what it acknowledged, by the reader before of all that it knows, or of nothing */
    :: known = acknowledgedAt; least = acknowledged
    :: told > known -> known = told
    :: skip
    fi
  }
  do
  :: grown = 0;
     if
     :: slowly = 0   /* the fast side of a lookup; the slow side comes after it, or at once */
     :: slowly = 1
     fi;
     load(ENTRY, ACQUIRE, slot);
     load(META(slot), ACQUIRE, meta);
     load(ONE(slot), ACQUIRE, one);
     load(TWO(slot), ACQUIRE, two);
     if
     :: slowly -> load(ENTRY, ACQUIRE, entry)
     :: else
     fi;
#ifdef NO_SECOND_LOOK
     again = meta;
#else
     load(META(slot), RELAXED, again);
#endif
     if
     :: !slowly && again == meta && (meta & 1) == 0 -> break
     :: slowly && again == meta && entry == slot ->
        assert((meta & 1) == 0);   /* else it is damage, and there is none */
        break
     :: slowly && (again != meta || entry != slot) ->
        assert(grown)   /* who looks again has seen a store for the first time: nobody waits for a dead writer */
     :: !slowly && (again != meta || (meta & 1))
     fi
  od;
  assert(one == two);       /* whole */
  assert(one >= least);     /* nothing acknowledged is lost */
  told = known;
  turn++
}

init {
  atomic {
    byte i = 0;
    do
    :: i < LOCATIONS -> STORED(i, 0); i++
    :: else -> break
    od;
    run Writer();
    i = 0;
    do
    :: i < READERS -> run Reader(i); i++
    :: else -> break
    od
  }
}
