#include "bench/ScpiDialects.h"

namespace quillon::bench {

const char* const kScpiKinds = R"(
[meter]
voltageDC = VOLT:DC
voltageAC = VOLT:AC
currentDC = CURR:DC
currentAC = CURR:AC
resistance = RES
resistance4 = FRES
frequency = FREQ
period = PER
temperature = TEMP
continuity = CONT
diode = DIOD
configure = CONF:{function}
configureRange = CONF:{function} {range}
integration = SENS:{function}:NPLC {cycles}
read = READ?
initiate = INIT
fetch = FETC?
abort = ABOR
trigger = *TRG
triggerImmediate = TRIG:SOUR IMM
triggerBus = TRIG:SOUR BUS
triggerExternal = TRIG:SOUR EXT
triggerCount = TRIG:COUN {count}
sampleCount = SAMP:COUN {count}

[supply]
select = INST:NSEL {channel}
voltage = VOLT {value}
voltage? = VOLT?
current = CURR {value}
current? = CURR?
on = OUTP ON
off = OUTP OFF
on? = OUTP?
measureVoltage = MEAS:VOLT?
measureCurrent = MEAS:CURR?
overVoltage = VOLT:PROT {value}
overVoltageOn = VOLT:PROT:STAT ON
overVoltageOff = VOLT:PROT:STAT OFF
overVoltageTripped = VOLT:PROT:TRIP?
overCurrentOn = CURR:PROT:STAT ON
overCurrentOff = CURR:PROT:STAT OFF
overCurrentTripped = CURR:PROT:TRIP?
clearProtection = OUTP:PROT:CLE

[load]
select =
modeCurrent = FUNC CURR
modeVoltage = FUNC VOLT
modeResistance = FUNC RES
modePower = FUNC POW
current = CURR {value}
voltage = VOLT {value}
resistance = RES {value}
power = POW {value}
on = INP ON
off = INP OFF
on? = INP?
measureVoltage = MEAS:VOLT?
measureCurrent = MEAS:CURR?
measurePower = MEAS:POW?

[scope]
peakToPeak = MEAS:VOLT:PTP? (@{channel})
amplitude = MEAS:VOLT:AMPL? (@{channel})
maximum = MEAS:VOLT:MAX? (@{channel})
minimum = MEAS:VOLT:MIN? (@{channel})
high = MEAS:VOLT:HIGH? (@{channel})
low = MEAS:VOLT:LOW? (@{channel})
average = MEAS:VOLT:DC? (@{channel})
rms = MEAS:VOLT:AC? (@{channel})
frequency = MEAS:VOLT:FREQ? (@{channel})
period = MEAS:VOLT:PER? (@{channel})
riseTime = MEAS:VOLT:RTIM? (@{channel})
fallTime = MEAS:VOLT:FTIM? (@{channel})
pulseWidth = MEAS:VOLT:PWID? (@{channel})
negativeWidth = MEAS:VOLT:NWID? (@{channel})
dutyCycle = MEAS:VOLT:PDUT? (@{channel})

[matrix]
close = ROUT:CLOS (@{list})
open = ROUT:OPEN (@{list})
openAll = ROUT:OPEN:ALL
closed? = ROUT:CLOS? (@{list})
)";

const char* const kScpiDialects = R"(
# The output stands in a list behind each value.
[supply-list : supply]
select =
voltage = VOLT {value},(@{channel})
voltage? = VOLT? (@{channel})
current = CURR {value},(@{channel})
current? = CURR? (@{channel})
on = OUTP ON,(@{channel})
off = OUTP OFF,(@{channel})
on? = OUTP? (@{channel})
measureVoltage = MEAS:VOLT? (@{channel})
measureCurrent = MEAS:CURR? (@{channel})
overVoltage = VOLT:PROT {value},(@{channel})
overVoltageOn = VOLT:PROT:STAT ON,(@{channel})
overVoltageOff = VOLT:PROT:STAT OFF,(@{channel})
overVoltageTripped = VOLT:PROT:TRIP? (@{channel})
overCurrentOn = CURR:PROT:STAT ON,(@{channel})
overCurrentOff = CURR:PROT:STAT OFF,(@{channel})
overCurrentTripped = CURR:PROT:TRIP? (@{channel})
clearProtection = OUTP:PROT:CLE (@{channel})

# The output is a number in the header.
[supply-header : supply]
select =
voltage = SOUR{channel}:VOLT {value}
voltage? = SOUR{channel}:VOLT?
current = SOUR{channel}:CURR {value}
current? = SOUR{channel}:CURR?
on = OUTP{channel} ON
off = OUTP{channel} OFF
on? = OUTP{channel}?
measureVoltage = MEAS{channel}:VOLT?
measureCurrent = MEAS{channel}:CURR?
overVoltage = SOUR{channel}:VOLT:PROT {value}
overVoltageOn = SOUR{channel}:VOLT:PROT:STAT ON
overVoltageOff = SOUR{channel}:VOLT:PROT:STAT OFF
overVoltageTripped = SOUR{channel}:VOLT:PROT:TRIP?
overCurrentOn = SOUR{channel}:CURR:PROT:STAT ON
overCurrentOff = SOUR{channel}:CURR:PROT:STAT OFF
overCurrentTripped = SOUR{channel}:CURR:PROT:TRIP?
clearProtection = OUTP{channel}:PROT:CLE

# The mode has a header of its own.
[load-mode : load]
modeCurrent = MODE CURR
modeVoltage = MODE VOLT
modeResistance = MODE RES
modePower = MODE POW

# Measurements by their own names, channels by theirs.
[scope-names : scope]
peakToPeak = MEAS:VPP? CHAN{channel}
amplitude = MEAS:VAMP? CHAN{channel}
maximum = MEAS:VMAX? CHAN{channel}
minimum = MEAS:VMIN? CHAN{channel}
high = MEAS:VTOP? CHAN{channel}
low = MEAS:VBAS? CHAN{channel}
average = MEAS:VAV? CHAN{channel}
rms = MEAS:VRMS? CHAN{channel}
frequency = MEAS:FREQ? CHAN{channel}
period = MEAS:PER? CHAN{channel}
riseTime = MEAS:RIS? CHAN{channel}
fallTime = MEAS:FALL? CHAN{channel}
pulseWidth = MEAS:PWID? CHAN{channel}
negativeWidth = MEAS:NWID? CHAN{channel}
dutyCycle = MEAS:DUTY? CHAN{channel}
)";

}  // namespace quillon::bench
