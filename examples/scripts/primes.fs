\ The primes below fifty, by trial division.
: PRIME? ( n -- flag )
    TRUE SWAP
    DUP 2 ?DO
        DUP I MOD 0= IF SWAP DROP FALSE SWAP LEAVE THEN
    LOOP DROP ;
: PRIMES ( limit -- ) 2 DO I PRIME? IF I . THEN LOOP CR . ;
50 PRIMES
