/*
 * How tasks of several processes share the buses: the locks in their order, holds across calls, whole
 * EEPROM operations, and processes killed between any two steps. Tasks 0 and 1 are threads of one
 * process, task 2 is alone in the other.
 *
 * Checked: no state without a way on; a transfer only by the task that has the semaphore, with its
 * process in the owner record and in the file lock, on a path of its own making; no lock taken out
 * of order; every lock free and every path closed in the end, but for paths of the killed.
 *
 * BREAK puts in a fault that must be found: 1 the path is opened before the semaphore is taken,
 * 2 the EEPROM semaphore is taken inside a hold, 3 a semaphore outlives its killed holder, 4 a hold
 * gives the bus back before it closes the path.
 */
#ifndef BREAK
#define BREAK 0
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif
#ifndef KILLS
#define KILLS 1
#endif

#define TASKS 3
#define PROCESSES 2
#define BUSES 1 /* no task has two, so one shows all there is */
#define PROCESS(task) ((task) / 2)
#define NOBODY 255
#define ORPHAN 254 /* a killed task's path */

byte semaphore[BUSES] = NOBODY; /* a task */
byte owner[BUSES] = NOBODY;     /* a process */
byte file[BUSES] = NOBODY;      /* a process: a record lock does not tell threads apart */
byte path[BUSES] = NOBODY;      /* a task */
byte eeprom = NOBODY;           /* a task */
bool alive[PROCESSES] = true;
byte done = 0;

inline lock_bus(b)
{
    atomic { semaphore[b] == NOBODY -> semaphore[b] = me }
    owner[b] = PROCESS(me);
    atomic { file[b] == NOBODY || file[b] == PROCESS(me) ->
             assert(semaphore[b] == me);
             file[b] = PROCESS(me) }
}

inline unlock_bus(b)
{
    file[b] = NOBODY;
    atomic { assert(semaphore[b] == me); semaphore[b] = NOBODY }
}

inline open_path(b)
{
    atomic { assert(path[b] == NOBODY || path[b] == ORPHAN); path[b] = me }
}

inline close_path(b)
{
    atomic { assert(path[b] == me); path[b] = NOBODY }
}

inline transfer(b)
{
    atomic { assert(semaphore[b] == me && owner[b] == PROCESS(me));
             assert(file[b] == PROCESS(me) && path[b] == me) }
}

inline tries(b)
{
    open_path(b);
    transfer(b);
    if
    :: true
    :: close_path(b); open_path(b); transfer(b) /* the first try failed */
    fi;
    close_path(b)
}

inline locked_transfer(b)
{
#if BREAK == 1
    open_path(b);
    lock_bus(b);
    transfer(b);
    close_path(b);
#else
    lock_bus(b);
    tries(b);
#endif
    unlock_bus(b)
}

inline whole_eeprom_operation(b)
{
    atomic { eeprom == NOBODY -> eeprom = me }
    locked_transfer(b);
    locked_transfer(b);
    eeprom = NOBODY
}

/* The bus, without a path, across two transactions. */
inline hold(b)
{
    lock_bus(b);
    tries(b);
#if BREAK == 2
    atomic { eeprom == NOBODY -> eeprom = me }
    tries(b);
    eeprom = NOBODY;
#else
    tries(b);
#endif
    unlock_bus(b)
}

/* The bus with an open path. */
inline hold_path(b)
{
    lock_bus(b);
    open_path(b);
    transfer(b);
    transfer(b);
#if BREAK == 4
    unlock_bus(b);
    close_path(b)
#else
    close_path(b);
    unlock_bus(b)
#endif
}

proctype task(byte me)
{
    byte rounds = 0;
    do
    :: rounds < ROUNDS ->
        {
            if
            :: locked_transfer(0)
            :: whole_eeprom_operation(0)
            :: hold(0)
            :: hold_path(0)
            fi
        } unless { !alive[PROCESS(me)] };
        if
        :: !alive[PROCESS(me)] -> break
        :: else -> rounds++
        fi
    :: else -> break
    od;
    done++
}

/* A process ends as the kernel ends it: its threads stop, then its semaphores are undone one by one,
   then its files are closed. */
inline free_if_of(lock, condition)
{
    if
    :: d_step { condition -> lock = NOBODY }
    :: else
    fi
}

proctype killer(byte process)
{
    byte i;
    d_step {
        alive[process] = false;
        for (i : 0 .. BUSES - 1) {
            if
            :: path[i] != NOBODY && path[i] != ORPHAN && PROCESS(path[i]) == process -> path[i] = ORPHAN
            :: else
            fi
        }
    }
#if BREAK != 3
    free_if_of(eeprom, eeprom != NOBODY && PROCESS(eeprom) == process);
    free_if_of(semaphore[0], semaphore[0] != NOBODY && PROCESS(semaphore[0]) == process);
#endif
    free_if_of(file[0], file[0] == process);
    done++
}

init {
    byte kills = 0;
    byte i;
    atomic {
        for (i : 0 .. TASKS - 1) {
            run task(i)
        }
    }
    if
    :: KILLS > 0 -> atomic { run killer(0); kills++ }
    :: KILLS > 0 -> atomic { run killer(1); kills++ }
    :: true
    fi;
    done == TASKS + kills ->
    d_step {
        assert(eeprom == NOBODY);
        for (i : 0 .. BUSES - 1) {
            assert(semaphore[i] == NOBODY && file[i] == NOBODY);
            assert(path[i] == NOBODY || path[i] == ORPHAN)
        }
    }
}
