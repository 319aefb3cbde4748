// Nothing: a target that precompiles headers has a source file of its own.
