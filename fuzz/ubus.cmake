# Fuzz target of the bus daemon's message handling.
korvel_fuzz(ubusd korvel_ubusd_core)
