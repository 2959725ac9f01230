/* The start-up handshake of launcher and daemon over the semaphore set, with the death of either at any step.
 *
 * Follows service/daemonize.cpp step by step. The set is modelled as the kernel keeps it: values, one undo
 * record for each process and semaphore, taken back when the process ends, cleared by SETVAL and by removal.
 * Run by tests/models/check-models, which looks at every interleaving:
 *   (plain)          one start; launcher and daemon may each be killed before any step
 *   -DNO_LOOK        the launcher does not look at its daemon: finds the endless wait that looking prevents
 *   -DSECOND_START   a second launcher starts at any moment while the first start is going on: finds that
 *                    both starts may then wait for ever, which is why the service is to be started once
 */

#ifdef SECOND_START
#define STARTS 2
#else
#define STARTS 1
#endif

#define LAUNCHER(start) (start)
#define DAEMON(start)   (STARTS + (start))
#define UNDO(s, self)   undo[(s) * 2 * STARTS + (self)]

bool exists;              /* the set */
int  value[2];
int  undo[4 * STARTS];    /* what the end of a process adds to semaphore 0, and to 1 */
bool ended[2 * STARTS];
bool killed[2 * STARTS];
byte status[2 * STARTS];
bool locked;              /* the lock file is held by a running daemon */
bool acknowledged[STARTS];
bool signalled[STARTS];   /* the daemon has said that it is ready or done */

inline setToOne(s) {
  value[s] = 1;
  i = 0;
  do
  :: i < 2 * STARTS -> UNDO(s, i) = 0; i++
  :: else -> break
  od
}

inline remove() {
  exists = false;
  i = 0;
  do
  :: i < 4 * STARTS -> undo[i] = 0; i++
  :: else -> break
  od
}

/* The kernel takes back what the process did; a value does not go below 0. */
inline end(self, withStatus) {
  if
  :: exists ->
     value[0] = (value[0] + UNDO(0, self) < 0 -> 0 : value[0] + UNDO(0, self));
     value[1] = (value[1] + UNDO(1, self) < 0 -> 0 : value[1] + UNDO(1, self))
  :: else
  fi;
  UNDO(0, self) = 0; UNDO(1, self) = 0;
  status[self] = withStatus;
  ended[self] = true
}

/* One operation of a process that may be killed before it. An operation on a removed set ends with status 1. */
inline mayDie(self) {
  if
  :: true
#ifndef SECOND_START
  :: atomic { killed[self] = true; end(self, 9); goto over }
#endif
  fi
}

inline give(self, s) {
  mayDie(self);
  atomic {
    if
    :: exists -> value[s]++; UNDO(s, self)--
    :: else -> end(self, 1); goto over
    fi
  }
}

inline take(self, s) {
  mayDie(self);
  atomic {
    (!exists || value[s] > 0);
    if
    :: exists -> value[s]--; UNDO(s, self)++
    :: else -> end(self, 1); goto over
    fi
  }
}

proctype Daemon(byte start) {
  int i;
  byte self = DAEMON(start);
  bool owner;
  mayDie(self);
  atomic { owner = !locked; if :: owner -> locked = true :: else fi }
  give(self, 0);
  signalled[start] = true;
  take(self, 1);
  give(self, 1);
  mayDie(self);
  atomic { remove() }
  if
  :: owner -> goto up           /* runs on */
  :: else -> atomic { end(self, 2) }
  fi;
over:
  atomic { if :: owner -> locked = false :: else fi }
up:
  skip
}

proctype Launcher(byte start) {
  int i;
  byte self = LAUNCHER(start);
  mayDie(self);
  atomic { exists = true }       /* finds the set or makes it */
  mayDie(self);
  atomic { if :: exists -> setToOne(1) :: else -> end(self, 1); goto over fi }
  mayDie(self);
  atomic { if :: exists -> setToOne(0) :: else -> end(self, 1); goto over fi }
  take(self, 0);
  take(self, 1);
  mayDie(self);
  run Daemon(start);
  mayDie(self);
  atomic {                       /* waits in slices and looks at its daemon in between */
    (!exists || value[0] > 0
#ifndef NO_LOOK
     || ended[DAEMON(start)]
#endif
    );
    if
    :: exists && value[0] > 0 -> value[0]--; UNDO(0, self)++
    :: else ->
       if
       :: ended[DAEMON(start)] && exists -> remove()
       :: else
       fi;
       end(self, 1); goto over
    fi
  };
  give(self, 0);
  give(self, 1);
  acknowledged[start] = true;
  mayDie(self);
  atomic { end(self, 0) };
over:
  skip
}

init {
  byte start = 0;
  do
  :: start < STARTS -> run Launcher(start); start++
  :: else -> break
  od;
  (_nr_pr == 1);                 /* all others have come to their ends: a process that waits for ever is an error */
#ifndef SECOND_START
  /* A launcher that says 0 has been signalled, and one whose daemon was killed before that says 1. */
  assert(ended[0]);
  assert(status[0] != 0 || signalled[0]);
  assert(status[0] != 1 || killed[DAEMON(0)]);
  /* The set stays only when nobody is left to remove it: the daemon was killed after its launcher had
   * acknowledged, or both were killed. */
  assert(!exists || (killed[DAEMON(0)] && (acknowledged[0] || killed[0])) || (killed[0] && !ended[DAEMON(0)] && !signalled[0]));
#endif
}
