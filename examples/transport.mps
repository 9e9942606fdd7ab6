* Two plants ship cases to three markets at least cost: freight is 90 per case and thousand miles, costs are in thousands.
* Distances in thousand miles: PLANT1 2.5 1.7 1.8, PLANT2 2.5 1.8 1.4.
NAME          TRANSPORT
ROWS
 N  COST
 L  PLANT1
 L  PLANT2
 G  MARKET1
 G  MARKET2
 G  MARKET3
COLUMNS
    SHIP11    COST             0.225   PLANT1             1.0
    SHIP11    MARKET1            1.0
    SHIP12    COST             0.153   PLANT1             1.0
    SHIP12    MARKET2            1.0
    SHIP13    COST             0.162   PLANT1             1.0
    SHIP13    MARKET3            1.0
    SHIP21    COST             0.225   PLANT2             1.0
    SHIP21    MARKET1            1.0
    SHIP22    COST             0.162   PLANT2             1.0
    SHIP22    MARKET2            1.0
    SHIP23    COST             0.126   PLANT2             1.0
    SHIP23    MARKET3            1.0
RHS
    RHS       PLANT1           350.0   PLANT2           600.0
    RHS       MARKET1          325.0   MARKET2          300.0
    RHS       MARKET3          275.0
ENDATA
