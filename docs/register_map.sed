# For Doxygen: the register map is data that says everything itself, so its entries get
# their descriptions from their own numbers.
s|^  Register [A-Z0-9_]+\{Block::k([A-Za-z0-9]+), (0x[0-9A-F]+), "[A-Z0-9_]+"\};|& /**< Register at byte \2 of Block::k\1. */|
s|^  Field [a-z0-9_]+\{kReg\.([A-Z0-9_]+), ([0-9]+), 1, "[a-z0-9_]+"\};|& /**< Bit \2 of \1. */|
s|^  Field [a-z0-9_]+\{kReg\.([A-Z0-9_]+), ([0-9]+), ([0-9]+), "[a-z0-9_]+"\};|& /**< \3 bits of \1 from bit \2 up. */|
