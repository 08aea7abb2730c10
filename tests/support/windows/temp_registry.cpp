// The system has one registry for each user: nothing to be done here, tests stay below keys of their own.
